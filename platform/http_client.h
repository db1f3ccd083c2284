// HTTP to the cameras over libcurl's easy interface: the camera URL form, a
// JSON post with its reply (at most 4090 bytes), a multipart file post, and
// a file upload and download. All transfers are synchronous. libcurl is
// loaded on the first transfer; if it cannot be, every transfer fails (-1).
#pragma once

enum { HTTP_URL_LEN = 128, HTTP_REPLY_LEN = 4092 };

// "http://ip:port[/stok=token][/ds][path]" into url (HTTP_URL_LEN bytes);
// a port text that reads as 0 becomes 80. 0 or -1.
int http_makeup_url(const char *ip, const char *port, const char *stok, int with_stok, int with_ds,
                    char *url, const char *path);

// Posts body (JSON) and copies a 200 reply into reply (HTTP_REPLY_LEN bytes).
// 0, or -1 (any other status silently). Serialised with the other shared-
// header operation; any thread.
int http_single_post(const char *ip, const char *port, const char *stok, int with_stok, int with_ds,
                     const char *body, char *reply, int timeout_ms);

// Posts file as the multipart form field "filename". 0 or -1. Any thread.
int http_mutipartform_post_upload_file(const char *ip, const char *port, const char *stok, int with_stok,
                                       const char *path, const char *file, char *reply);


