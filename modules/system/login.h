// Login check and lock of the "user_management" module: failure records per
// user under "/tmp/luci-pwderr", a 30-minute lock once the configured
// maximum is reached, and the report of the lock to the recorder.
#pragma once

struct ds_context;
struct json_object;

// Seconds since boot; tests substitute their own clock. Main thread only.
using login_clock_fn = long (*)(void);
void login_set_clock(login_clock_fn fn);

// Non-zero (the record's size) when user is locked; *code is then -40404.
// Takes no lock: check_username_passwd serialises its read-decide-write of
// a record around these two; a direct caller must not race a check.
int is_locked(const char *user, int max, int *code);
// One more failure, capped at max; the new count in *count. 0, or -1.
int log_errinfo(const char *user, int *count, int max);
// Reports a lock to the recorder and the operation log: 0, -70101, -70102, -72211.
int call_login_error(const char *user);

// Keyword "check_user": always 0; the outcome is in the response members.
// Any worker; parallel checks of one user each count.
int check_username_passwd(ds_context *ctx, json_object *arg);
// The lock's verdict on a password another keyword checked (the account
// editor, the gesture check): a wrong one counts toward the user's lock
// exactly as check_user's do, a locked user is refused whatever was offered
// (and the lock reported), a right one clears the record. 0 (right, not
// locked), -70312 (wrong), -40404 (locked) or the report's code. Any worker.
int login_password_verdict(ds_context *ctx, const char *user, bool matches);
// Removes every web session file; 0, or -1 when one could not be removed.
// Any thread.
int login_end_sessions(void);
// Drops user's failure record (no file is fine); -1 for an empty name or a
// record that could not be removed. Any thread.
int login_forget_failures(const char *user);

// Keyword "rm_pwd_err": ends every web session. -40101 for a null argument, else 0.
int rm_pwd_err_file(ds_context *ctx, json_object *arg);
