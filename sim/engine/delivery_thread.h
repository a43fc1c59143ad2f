// One thread of the simulated engine that runs posted deliveries in order, as a real engine
// calls back on threads of its own. The peer's button notifications and the stream channels'
// deliveries each own one. Tasks run with no lock of this class held. Thread-safe.
#ifndef PERIX_SIM_DELIVERY_THREAD_H_
#define PERIX_SIM_DELIVERY_THREAD_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace perix_sim {

class DeliveryThread {
public:
    DeliveryThread() = default;
    DeliveryThread(const DeliveryThread&) = delete;
    DeliveryThread& operator=(const DeliveryThread&) = delete;
    ~DeliveryThread() { Stop(); }

    // Queues `task`, starting the thread on first use; false when it cannot be queued.
    bool Post(std::function<void()> task) noexcept {
        try {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!worker_.joinable()) {
                const uint64_t generation = generation_;
                worker_ = std::thread([this, generation] { Run(generation); });
            }
            queue_.push_back(std::move(task));
        } catch (...) {
            return false;
        }
        wake_.notify_one();
        return true;
    }

    // Waits until every task posted so far has run (or the thread was stopped).
    void Flush() {
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return (queue_.empty() && !busy_) || !worker_.joinable(); });
    }

    // Drops the queued tasks and ends the thread after the task it is running. Called from a
    // task itself, the thread is let go and ends on its own when that task returns.
    void Stop() {
        std::thread stopped;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ++generation_;
            queue_.clear();
            busy_ = false;
            stopped.swap(worker_);
        }
        wake_.notify_all();
        idle_.notify_all();
        if (stopped.joinable()) {
            if (stopped.get_id() == std::this_thread::get_id()) {
                stopped.detach();
            } else {
                stopped.join();
            }
        }
    }

private:
    // A worker serves one generation; Stop starts the next, so a let-go worker never takes a
    // task that was posted after it.
    void Run(uint64_t generation) {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [&] { return generation != generation_ || !queue_.empty(); });
            if (generation != generation_) {
                return;
            }
            std::function<void()> task = std::move(queue_.front());
            queue_.pop_front();
            busy_ = true;
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
            if (generation != generation_) {
                return;
            }
            busy_ = false;
            if (queue_.empty()) {
                idle_.notify_all();
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;  // the worker waits for a task or a stop
    std::condition_variable idle_;  // Flush waits for an empty queue and an idle worker
    std::deque<std::function<void()>> queue_;
    std::thread worker_;
    uint64_t generation_ = 0;
    bool busy_ = false;
};

}  // namespace perix_sim

#endif  // PERIX_SIM_DELIVERY_THREAD_H_
