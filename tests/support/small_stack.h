#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

/// Runs `work` on a thread with a stack of 1 MiB, as programs have on 64-bit Windows.
inline void on_small_stack(std::function<void()> const& work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 1 << 20), 0);
  pthread_t thread{};
  auto const run = [](void* function) -> void* {
    (*static_cast<std::function<void()> const*>(function))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)), 0);
  pthread_join(thread, nullptr);
}
