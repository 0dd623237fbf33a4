// `vekhost call`: any registered method, named on the command line with
// literal arguments, called through the caller on blocks given in hex.
#pragma once

#include <span>
#include <string>

// `args` are the words after "call"; `plugin` is used when no --plugin is
// given. Throws std::runtime_error (one line) for what cannot be called.
int call_command(std::span<char* const> args, const std::string& plugin);

extern const char* const kCallUsage;

// Text in double quotes, anything but printable ASCII (and the quote and the
// backslash) as \xNN.
std::string quoted(const std::string& text);
