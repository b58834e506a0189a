// Runs one function on several threads at once.
#ifndef KIV_TESTS_THREADS_H
#define KIV_TESTS_THREADS_H

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace kiv::test {

// Calls work(number) on `count` threads, numbered from 0. All threads start together. Joins them.
template <typename Work>
void OnThreads(uint32_t count, Work work) {
  std::atomic<uint32_t> waiting{count};
  std::vector<std::thread> threads;
  for (uint32_t number = 0; number < count; ++number) {
    threads.emplace_back([&, number] {
      waiting.fetch_sub(1);
      while (waiting.load() != 0) std::this_thread::yield();
      work(number);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace kiv::test

#endif
