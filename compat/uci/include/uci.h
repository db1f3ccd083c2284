/*
 * Host build of the libuci public interface: the subset dsd uses, with the
 * names, values and structure layouts of OpenWrt's uci.h so the daemon's
 * sources compile unchanged against either. Implemented in C++ under
 * compat/uci; on the device the real library links instead.
 */
#ifndef __LIBUCI_H
#define __LIBUCI_H

#ifdef __cplusplus
extern "C" {
#endif

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
	UCI_OK = 0,
	UCI_ERR_MEM,
	UCI_ERR_INVAL,
	UCI_ERR_NOTFOUND,
	UCI_ERR_IO,
	UCI_ERR_PARSE,
	UCI_ERR_DUPLICATE,
	UCI_ERR_UNKNOWN,
	UCI_ERR_LAST
};

struct uci_list {
	struct uci_list *next;
	struct uci_list *prev;
};

struct uci_ptr;
struct uci_element;
struct uci_package;
struct uci_section;
struct uci_option;
struct uci_delta;
struct uci_context;
struct uci_backend;
struct uci_parse_context;

enum uci_type {
	UCI_TYPE_UNSPEC = 0,
	UCI_TYPE_DELTA = 1,
	UCI_TYPE_PACKAGE = 2,
	UCI_TYPE_SECTION = 3,
	UCI_TYPE_OPTION = 4,
	UCI_TYPE_PATH = 5,
	UCI_TYPE_BACKEND = 6,
	UCI_TYPE_ITEM = 7,
	UCI_TYPE_HOOK = 8,
};

enum uci_option_type {
	UCI_TYPE_STRING = 0,
	UCI_TYPE_LIST = 1,
};

enum uci_flags {
	UCI_FLAG_STRICT = (1 << 0),
	UCI_FLAG_PERROR = (1 << 1),
	UCI_FLAG_EXPORT_NAME = (1 << 2),
	UCI_FLAG_SAVED_DELTA = (1 << 3),
};

struct uci_element {
	struct uci_list list;
	enum uci_type type;
	char *name;
};

struct uci_context {
	struct uci_list root; /* loaded packages */
	struct uci_parse_context *pctx;
	struct uci_backend *backend;
	struct uci_list backends;
	enum uci_flags flags;
	char *confdir;
	char *savedir;
	struct uci_list delta_path;
	/* private: */
	int err;
	const char *func;
	jmp_buf trap;
	bool internal, nested;
	char *buf;
	int bufsz;
};

struct uci_package {
	struct uci_element e;
	struct uci_list sections;
	struct uci_context *ctx;
	bool has_delta;
	char *path;
	/* private: */
	struct uci_backend *backend;
	void *priv;
	int n_section;
	struct uci_list delta;
	struct uci_list saved_delta;
};

struct uci_section {
	struct uci_element e;
	struct uci_list options;
	struct uci_package *package;
	bool anonymous;
	char *type;
};

enum uci_command {
	UCI_CMD_ADD,
	UCI_CMD_REMOVE,
	UCI_CMD_CHANGE,
	UCI_CMD_RENAME,
	UCI_CMD_REORDER,
	UCI_CMD_LIST_ADD,
	UCI_CMD_LIST_DEL,
	__UCI_CMD_MAX,
	__UCI_CMD_LAST = __UCI_CMD_MAX - 1
};

/* A staged change, in p->delta until uci_save writes it (e.name: option). */
struct uci_delta {
	struct uci_element e;
	enum uci_command cmd;
	char *section;
	char *value;
};

struct uci_option {
	struct uci_element e;
	struct uci_section *section;
	enum uci_option_type type;
	union {
		struct uci_list list;
		char *string;
	} v;
};

struct uci_ptr {
	enum uci_type target;
	enum {
		UCI_LOOKUP_DONE = (1 << 0),
		UCI_LOOKUP_COMPLETE = (1 << 1),
		UCI_LOOKUP_EXTENDED = (1 << 2),
	} flags;

	struct uci_package *p;
	struct uci_section *s;
	struct uci_option *o;
	struct uci_element *last;

	const char *package;
	const char *section;
	const char *option;
	const char *value;
};

struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);
void uci_perror(struct uci_context *ctx, const char *str);
void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str);
int uci_import(struct uci_context *ctx, FILE *stream, const char *name,
	       struct uci_package **package, bool single);
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *p);
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);
int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
		    struct uci_section **res);
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_save(struct uci_context *ctx, struct uci_package *p);
int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);
int uci_set_savedir(struct uci_context *ctx, const char *dir);
int uci_set_confdir(struct uci_context *ctx, const char *dir);
bool uci_validate_text(const char *str);

#ifndef container_of
#define container_of(ptr, type, member) \
	((type *) ((char *)ptr - offsetof(type, member)))
#endif

#define list_to_element(ptr) container_of(ptr, struct uci_element, list)

#define uci_foreach_element(_list, _ptr)		\
	for (_ptr = list_to_element((_list)->next);	\
	     &_ptr->list != (_list);			\
	     _ptr = list_to_element(_ptr->list.next))

#define uci_foreach_element_safe(_list, _tmp, _ptr)		\
	for (_ptr = list_to_element((_list)->next),		\
	     _tmp = list_to_element(_ptr->list.next);		\
	     &_ptr->list != (_list);				\
	     _ptr = _tmp, _tmp = list_to_element(_ptr->list.next))

#define uci_list_empty(list) ((list)->next == (list))

#define uci_to_delta(ptr) container_of(ptr, struct uci_delta, e)
#define uci_to_package(ptr) container_of(ptr, struct uci_package, e)
#define uci_to_section(ptr) container_of(ptr, struct uci_section, e)
#define uci_to_option(ptr) container_of(ptr, struct uci_option, e)


#ifdef __cplusplus
}
#endif

#endif /* __LIBUCI_H */
