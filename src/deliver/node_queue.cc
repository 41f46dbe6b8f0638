// A ring in shared memory, of which only the pages that are used exist.
#include "deliver/node_queue.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>

namespace faxtray {

static constexpr unsigned capacity = 65536;  // divides the range of an unsigned

namespace {

// The values from `first` to `end`, each counted on without limit, at their number modulo `capacity`.
struct queue_t {
    pthread_mutex_t lock;
    unsigned first, end;
    intptr_t values[capacity];
};

}  // namespace

static queue_t *queue;

int nshare()
{
    if (queue)
        return 1;
    void *shared = mmap(nullptr, sizeof(queue_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        return 0;
    queue = static_cast<queue_t *>(shared);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&queue->lock, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return 1;
}

int nenq(intptr_t value)
{
    if (!queue || queue->end - queue->first == capacity)
        return 0;
    queue->values[queue->end % capacity] = value;
    queue->end++;
    return 1;
}

intptr_t ndeq()
{
    if (ncount() > 0)
        queue->first++;
    return nhead();
}

intptr_t nhead()
{
    return ncount() > 0 ? queue->values[queue->first % capacity] : 0;
}

intptr_t ntail()
{
    return ncount() > 0 ? queue->values[(queue->end - 1) % capacity] : 0;
}

void npurge()
{
    if (queue)
        queue->first = queue->end;
}

int ncount()
{
    return queue ? static_cast<int>(queue->end - queue->first) : 0;
}

nlock::nlock()
{
    // Whoever died with the lock has left a queue of whole values: each change becomes visible by one number.
    if (queue && pthread_mutex_lock(&queue->lock) == EOWNERDEAD)
        pthread_mutex_consistent(&queue->lock);
}

nlock::~nlock()
{
    if (queue)
        pthread_mutex_unlock(&queue->lock);
}

}  // namespace faxtray
