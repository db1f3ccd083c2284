/*
 * Host build of libubox's socket helper: the flag values and signature of
 * OpenWrt's usock.h, for the subset dsd uses (Unix-domain listeners).
 */
#ifndef USOCK_H
#define USOCK_H

#ifdef __cplusplus
extern "C" {
#endif

#define USOCK_TCP 0
#define USOCK_UDP 1

#define USOCK_SERVER 0x0100
#define USOCK_NOCLOEXEC 0x0200
#define USOCK_NONBLOCK 0x0400
#define USOCK_NUMERIC 0x0800
#define USOCK_IPV6ONLY 0x2000
#define USOCK_IPV4ONLY 0x4000
#define USOCK_UNIX 0x8000

/* A connected or listening socket, or -1 with errno set. For USOCK_UNIX the
 * host is the socket's path and the service is ignored. */
int usock(int type, const char *host, const char *service);

#ifdef __cplusplus
}
#endif

#endif
