// Fire-and-forget bus calls through the "ubus" command-line tool.
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/shell.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

// Runs a copy of command with system() on a detached thread; the outcome is
// never reported. 0, -1 for null, or pthread_create's error. Any thread.
int run_shell_async(const char *command)
{
    if (!command)
        return -1;
    char *copy = strdup(command);
    if (!copy)
        return -1;
    // The thread detaches itself and frees the copy after running it.
    pthread_t tid;
    int rc = pthread_create(&tid, nullptr, run_shell_detached, copy);
    if (rc != 0)
        free(copy);
    return rc;
}

// "ubus call <object> <method> '<message>'" through run_shell_async. The
// message must not hold a single quote (callers pass JSON they built).
// 0, -1 for a null object or method, or the thread error. Any thread.
int ubus_call_by_shell(const char *object, const char *method, const char *message)
{
    if (!object || !method)
        return -1;
    char cmd[513];
    if (message)
        snprintf(cmd, sizeof cmd, "ubus call %s %s '%s'", object, method, message);
    else
        snprintf(cmd, sizeof cmd, "ubus call %s %s", object, method);
    return run_shell_async(cmd);
}
