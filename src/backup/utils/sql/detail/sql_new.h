#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <cerrno>
#include <new>
#include <utility>

#include "backup/utils/sql/sql.h"

/// Gives the result of `make`. When memory is short, null or false with errno ENOMEM; what `make` has made by then must
/// have an owner, which releases it.
template <class Make>
auto without_throwing(Make make) -> decltype(make()) {
  try {
    return make();
  } catch (std::bad_alloc const&) {
    errno = ENOMEM;
    return {};
  }
}

/// Makes an object and gives it to `owner` before anything else can fail. Throws only std::bad_alloc.
template <class T, class... Arguments>
T* new_sql(ACE_Intrusive_Auto_Ptr<SQL>& owner, Arguments&&... arguments) {
  T* const object = new T(std::forward<Arguments>(arguments)...);
  owner.reset(object);
  return object;
}

/// Makes a T, passes its owner to `put`, and returns it. When memory is short, null with errno ENOMEM.
template <class T, class Put, class... Arguments>
T* add_new(Put put, Arguments&&... arguments) {
  return without_throwing([&] {
    ACE_Intrusive_Auto_Ptr<SQL> owner;
    T* const object = new_sql<T>(owner, std::forward<Arguments>(arguments)...);
    put(owner);
    return object;
  });
}
