// How tests start the programs of this build. A cross-built run names an
// emulator in DSD_EXEC_WRAPPER (e.g. "qemu-arm -L <sysroot>"): every dsd,
// tool and simulator is then started through it, and time-outs stretch.
// Header-only so unit tests can use it without the end-to-end harness.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

// The wrapper's words (empty when unset), to put before a program's argv.
// The first word is a name searched on PATH, so start it with execvp.
inline std::vector<std::string> exec_wrapper_words(void)
{
    std::vector<std::string> words;
    const char *w = getenv("DSD_EXEC_WRAPPER");
    std::istringstream in(w ? w : "");
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

// Multiplier for time-outs when tests run under an emulator or sanitizer.
inline int harness_slowdown(void)
{
    const char *w = getenv("DSD_EXEC_WRAPPER");
    return w && *w ? 10 : 1;
}

// A shell command line that runs a tool of this build, quoted, through the
// wrapper when set (cross-built tools cannot be exec'd directly).
inline std::string tool_command(const std::string &name)
{
    const char *w = getenv("DSD_EXEC_WRAPPER");
    return std::string(w ? w : "") + " '" + DSD_TOOLS_DIR + "/" + name + "'";
}
