// Keeps secrets out of the trace. Every trace line goes through
// trace_mask() before it is printed, so a request, a response, a bus message
// or a camera exchange quoted by any function at any level is masked alike.
#pragma once

#include <string>
#include <string_view>

// Returns text with secrets replaced by "***":
// - the value of a JSON member whose key names a secret (password, passwd,
//   pwd, old_password, new_password, key, psk, stok, token, secret,
//   ciphertext; any key containing "passw", "pwd" or "secret"), whatever the
//   value's type and nesting, with \u escapes in the key decoded first;
// - the same keys written as name=value (query strings, "/stok=...");
// - the password of user:password@ in any URL ("rtsp://u:p@host"), also in
//   its JSON-escaped ("\/\/") and URL-encoded ("%3A%2F%2F", "%40") forms.
// Text without secrets comes back unchanged. Pure; any thread.
std::string trace_mask(std::string_view text);
