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

// The one multiplier for every time-out, sleep and kill window of the tests:
// 10 under an emulator (DSD_EXEC_WRAPPER set), 1 natively. DSD_TIME_FACTOR
// (a whole number >= 1) overrides it, e.g. for sanitizer builds.
inline int harness_slowdown(void)
{
    const char *f = getenv("DSD_TIME_FACTOR");
    if (f && atoi(f) >= 1)
        return atoi(f);
    const char *w = getenv("DSD_EXEC_WRAPPER");
    return w && *w ? 10 : 1;
}

// ms scaled by the factor above.
inline int scaled_ms(int ms)
{
    return ms * harness_slowdown();
}

// A shell command line that runs a tool of this build, quoted, through the
// wrapper when set (cross-built tools cannot be exec'd directly).
inline std::string tool_command(const std::string &name)
{
    const char *w = getenv("DSD_EXEC_WRAPPER");
    return std::string(w ? w : "") + " '" + DSD_TOOLS_DIR + "/" + name + "'";
}
