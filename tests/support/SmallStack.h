// Runs code on a thread whose stack is as small as a macOS worker thread's
// (512 KiB), where any walk that recurses once per level of a deep tree
// overflows.
#pragma once

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace TarselTest {

constexpr std::size_t kSmallStackBytes = 512 * 1024;

// Runs body on a new thread with a 512 KiB stack and waits for it; gtest's
// assertions inside body report as usual.
inline void RunOnSmallStack(const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStackBytes), 0);
    pthread_t thread;
    const auto run = [](void* f) -> void* {
        (*static_cast<const std::function<void()>*>(f))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

}  // namespace TarselTest
