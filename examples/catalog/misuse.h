#pragma once

#include <stdexcept>

/// What was asked for cannot be done as asked. Ends the program with the exit code of misuse; the text is for the user.
class Misuse : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};
