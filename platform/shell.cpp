#include "platform/shell.h"

#include <pthread.h>
#include <sys/wait.h>

#include <cstdlib>

#include "platform/trace.h"

std::string shell_quote(std::string_view value)
{
    std::string out;
    out.reserve(value.size() + 2);
    out.push_back('\'');
    for (char c : value) {
        if (c == '\'')
            out.append("'\\''");
        else
            out.push_back(c);
    }
    out.push_back('\'');
    return out;
}

int shell_run(const std::string &command)
{
    int status = system(command.c_str());
    if (status == -1 || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

// Thread start routine for fire-and-forget commands: the thread detaches
// itself, runs the heap-allocated `command` with system() and frees it.
void *run_shell_detached(void *command)
{
    pthread_detach(pthread_self());
    if (!command)
        return nullptr;
    char *cmd = static_cast<char *>(command);
    int rc = system(cmd);
    if (rc != 0)
        DS_INFO("Command exited with %d.", rc);
    free(cmd);
    return nullptr;
}
