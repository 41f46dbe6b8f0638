#include "web/worker.h"

#include <exception>

namespace faxtray {

static constexpr size_t most_waiting = 1000;

struct worker::task_t {
    const std::function<void()> &job;
    enum { WAITING, DONE, DROPPED } state = WAITING;
    std::exception_ptr thrown = nullptr;
    std::condition_variable ended = {};
};

worker::worker() : thread_([this] { work(); }) {}

worker::~worker()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        for (task_t *task : waiting_) {
            task->state = task_t::DROPPED;
            task->ended.notify_one();
        }
        waiting_.clear();
    }
    wanted_.notify_one();
    thread_.join();
}

bool worker::run(const std::function<void()> &job)
{
    task_t task = {job};
    std::unique_lock lock(mutex_);
    if (ending_ || waiting_.size() >= most_waiting)
        return false;
    waiting_.push_back(&task);
    wanted_.notify_one();
    task.ended.wait(lock, [&] { return task.state != task_t::WAITING; });
    if (task.thrown)
        std::rethrow_exception(task.thrown);
    return task.state == task_t::DONE;
}

void worker::work()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wanted_.wait(lock, [&] { return ending_ || !waiting_.empty(); });
        if (ending_)
            return;
        task_t *task = waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        try {
            task->job();
        } catch (...) {
            task->thrown = std::current_exception();
        }
        lock.lock();
        task->state = task_t::DONE;
        task->ended.notify_one();
    }
}

}  // namespace faxtray
