// Host subset of libubox's socket helper: the flag values match the
// platform's header so callers compile unchanged against either.
#ifndef USOCK_H_
#define USOCK_H_

#define USOCK_TCP 0
#define USOCK_UDP 1

#define USOCK_SERVER 0x0100
#define USOCK_NOCLOEXEC 0x0200
#define USOCK_NONBLOCK 0x0400
#define USOCK_NUMERIC 0x0800
#define USOCK_IPV6ONLY 0x2000
#define USOCK_IPV4ONLY 0x4000
#define USOCK_UNIX 0x8000

// Opens a socket of the given kind. With USOCK_UNIX, host is the socket
// path and service is ignored; with USOCK_SERVER it is bound and listening,
// otherwise connected. Close-on-exec unless USOCK_NOCLOEXEC. The descriptor,
// or -1. Only Unix-domain sockets are supported on a host.
int usock(int type, const char *host, const char *service);

#endif /* USOCK_H_ */
