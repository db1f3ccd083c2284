// The one way request or configuration values reach a shell.
//
// Every command line built from values that came from a request, uci or a
// peer quotes each such value with shell_quote(); nothing else is allowed to
// paste a value into a command. Fixed command words need no quoting.
#pragma once

#include <string>
#include <string_view>

// Wraps `value` in single quotes, escaping embedded single quotes as '\'' so
// the shell sees exactly the original bytes as one word. Any thread.
std::string shell_quote(std::string_view value);

// Runs `command` with /bin/sh -c and waits; returns the exit status (0..255)
// or -1 when it could not be run. Any thread.
int shell_run(const std::string &command);
