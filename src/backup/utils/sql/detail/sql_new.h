#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <cerrno>
#include <new>
#include <utility>

#include "backup/utils/sql/sql.h"

/// The result of `make`, which makes something and puts it where it belongs. Null or false with errno ENOMEM when
/// memory is short; `make` leaves nothing behind then, since whatever it made is owned from the start.
template <class Make>
auto without_throwing(Make make) -> decltype(make()) {
  try {
    return make();
  } catch (std::bad_alloc const&) {
    errno = ENOMEM;
    return {};
  }
}

/// A new object owned by `owner` before anything else can fail. Throws std::bad_alloc, and only that.
template <class T, class... Arguments>
T* new_sql(ACE_Intrusive_Auto_Ptr<SQL>& owner, Arguments&&... arguments) {
  T* const object = new T(std::forward<Arguments>(arguments)...);
  owner.reset(object);
  return object;
}

/// Makes a T, lets `put` put its owner where it belongs, and returns it. Null with errno ENOMEM when memory is short.
template <class T, class Put, class... Arguments>
T* add_new(Put put, Arguments&&... arguments) {
  return without_throwing([&] {
    ACE_Intrusive_Auto_Ptr<SQL> owner;
    T* const object = new_sql<T>(owner, std::forward<Arguments>(arguments)...);
    put(owner);
    return object;
  });
}
