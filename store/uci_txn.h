// The transaction's private side: what the writers of the access layer call.
#pragma once

#include "store/store.h"

// Takes `package` into `t` when it is not there yet (holds it; notes where
// its change log stands) and marks it staged-into. 0, or -1 with a trace
// when the bounded wait expired or the arguments are bad.
int store_txn_take(store_txn *t, const char *package);
