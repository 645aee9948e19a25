// SPDX-License-Identifier: Apache-2.0
// Threads that do the same at once.
#ifndef VELTRA_TESTS_SUPPORT_THREADS_H
#define VELTRA_TESTS_SUPPORT_THREADS_H

#include <cstddef>
#include <thread>
#include <vector>

namespace TestSupport {

// `body` in each of them, with its number from 0; joined with the object.
class Threads {
public:
    template <typename Body>
    Threads(size_t count, Body body)
    {
        for (size_t i = 0; i < count; ++i) {
            threads_.emplace_back(body, i);
        }
    }
    ~Threads() { Join(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void Join()
    {
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

private:
    std::vector<std::thread> threads_;
};

}  // namespace TestSupport

#endif
