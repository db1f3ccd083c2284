// Configuration change events: after a commit that changed configuration
// the daemon tells the bus ("dsd.config"), so user interfaces and peers
// need not poll. Sending never blocks or fails a request: events go
// through a bounded queue to a sender thread of their own, and are dropped
// (and counted) when it is full. A lost bus connection is traced once and
// made again at the next event. DSD_EVENTS=0 in the environment turns
// events off.
#pragma once

#include <string>
#include <vector>

// The bus event's name.
#define CONFIG_EVENT_NAME "dsd.config"

// Whether events are on (DSD_EVENTS is not "0"). Any thread.
bool config_events_enabled(void);

// Queues an event for the sender: `text` is the JSON text of an object
// without its closing brace; the queue adds "change", the number of
// changes of `package` announced since start (this one included), and the
// brace. Starts the sender at the first call. Any thread.
void config_event_post(const char *package, std::string text);

// Notes a commit of `package` by this thread, for the actions whose
// commits are announced after they return (config_commits_take). Any thread.
void config_note_commit(const char *package);
// The packages this thread committed since the last take, in order without
// repeats; forgets them.
std::vector<std::string> config_commits_take(void);
