// Crash-safe merging of a package's change log into its configuration file,
// and the background flusher of the light commit.
//
// Every write the daemon makes to a configuration file goes through
// uci_flush_package (the ordinary commit and the flusher) or
// uci_install_packages (restore); a read cache hooks there.
#pragma once

#include "store/store.h"

// Notes that `package` has light-committed changes for the flusher. Any thread.
void uci_flush_mark(const char *package);

// Start-up, before uci_store_recover removes temporaries: an install that
// had written all its temporary files (its marker is on disk) is finished
// by renaming the rest into place, so a crash never leaves a mix of old and
// restored packages. Main thread, before the first request.
void uci_install_recover(void);
