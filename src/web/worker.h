// worker: the one thread that calls inbox_client and the room document. Both are made for programs of one
// thread: libtirpc's errors, the decoder's tables of the page at hand, hashes and messages lie in static
// storage. The threads of the HTTP server hand it their work and wait.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace faxtray {

class worker {
public:
    worker();
    ~worker();  // finishes the job at hand; those that wait are dropped, with false
    worker(const worker &) = delete;
    worker &operator=(const worker &) = delete;

    // Runs the job after those that wait already, and returns when it has ended: true, unless too many wait.
    // What the job throws is thrown here. Jobs are short, as one call of the server or one page: everybody
    // else waits for them.
    bool run(const std::function<void()> &job);

private:
    struct task_t;
    void work();

    std::mutex mutex_;
    std::condition_variable wanted_;
    std::deque<task_t *> waiting_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace faxtray
