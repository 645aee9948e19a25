// SPDX-License-Identifier: Apache-2.0
// Texts that are nested deep, and threads whose stacks are too small for them.
#ifndef VELTRA_TESTS_SUPPORT_DEEP_TEXT_H
#define VELTRA_TESTS_SUPPORT_DEEP_TEXT_H

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>

namespace TestSupport {

inline std::string Repeat(const std::string& text, size_t times)
{
    std::string result;
    result.reserve(text.size() * times);
    while (times-- > 0) {
        result += text;
    }
    return result;
}

inline std::string Arrays(size_t depth)
{
    return Repeat("[", depth) + Repeat("]", depth);
}

// The smallest stack that a thread may have is larger on some processors: 128 KiB on arm64.
inline void RunOnStackOf(size_t sizeBytes, std::function<void()> job)
{
    sizeBytes = std::max(sizeBytes, static_cast<size_t>(PTHREAD_STACK_MIN));
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, sizeBytes), 0);
    pthread_t thread;
    const auto run = [](void* context) -> void* {
        (*static_cast<std::function<void()>*>(context))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &job), 0);
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
}

}  // namespace TestSupport

#endif
