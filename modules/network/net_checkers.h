// Address, netmask, DNS and MAC checks of the network settings ("protocol"
// package), and the address arithmetic they share with the network callbacks.
//
// Checkers have the ds_checker_fn signature, never change the value or the
// context, and run on the request's worker thread. The ones with a related
// option take a net_rel_opt argument: the related value is read from the
// request first and from uci second.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/registry.h"

struct ds_context;
struct json_object;

// A second option a check depends on (a mask for an address, the DNS mode for
// a DNS server), named by package, section and option.
struct net_rel_opt {
    const char *package;
    const char *section;
    const char *option;
};

enum {
    NET_ERR_ADDR_ABSENT = -40301,
    NET_ERR_GATEWAY = -40306,
    NET_ERR_NETMASK = -40305,
    NET_ERR_SAME_SUBNET = -40308,
    NET_ERR_MAC_FORMAT = -40310,
    NET_ERR_MAC_GROUP = -40311,
    NET_ERR_MAC_ZERO = -40312,
    NET_ERR_MAC_BROADCAST = -40313,
    NET_ERR_NET_PART = -40314,
    NET_ERR_HOST_PART = -40315,
    NET_ERR_CLASS_MASK = -40317,
    NET_ERR_PRI_DNS = -50102,
    NET_ERR_SND_DNS = -50103,
    NET_ERR_MAC_TYPE = -50121,
};

// DNS: empty or "0.0.0.0" means "none". check_pridns allows that only when
// the related DNS mode is "dynamic" or "manual". Row code replaces -50102/-50103.
int32_t check_pridns(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                     int32_t err_code);
int32_t check_static_pridns(ds_context *ctx, json_object *value, json_object *sec,
                            const void *arg, int32_t err_code);
int32_t check_secdns(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                     int32_t err_code);
// A host address; every refusal is -40306 (or the row code).
int32_t check_gateway(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                      int32_t err_code);
// -50121 for a non-string, else net_mac_check of the text.
int32_t check_wan_macaddr(ds_context *ctx, json_object *value, json_object *sec,
                          const void *arg, int32_t err_code);
// Host address (ipv4_check_host's code), then net_addr_mask_rule with the
// related mask. check_lan_ip also refuses the WAN's subnet (-40308).
int32_t check_wan_ip(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                     int32_t err_code);
int32_t check_lan_ip(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                     int32_t err_code);
// net_netmask_rule (-40305), then "network" "lan" "ipaddr" and the static
// WAN address must not fall into one subnet under the new mask (-40308).
int32_t check_netmask(ds_context *ctx, json_object *value, json_object *sec, const void *arg,
                      int32_t err_code);

// Matches `text` against the POSIX extended expression `pattern`: 1 match,
// 0 no match, -1 when the expression can't be compiled or run (traced).
int regex_exe(const char *pattern, const char *text);

// Class letter 'A'..'E' of an address from its first octet (192 counts as B).
char net_ip_class(uint32_t addr);
// Natural mask of a class letter; 0 for D and E.
uint32_t net_class_mask(char cls);
// 0, or -40314 / -40315 / -40317 for an address and its mask (null texts
// give -40317).
int32_t net_addr_mask_rule(const char *addr, const char *mask);
// 0 for a contiguous mask of 1..32 bits written as a plain dotted quad, else -40305.
int32_t net_netmask_rule(const char *mask);
// 1 when a and b share a network under mask, 0 when not, -1 when any of the
// three is not four numbers.
int net_same_subnet(const char *a, const char *b, const char *mask);
// Normalises (first 19 bytes, '-' to ':', lower case) and checks a MAC:
// 0 or -40310 / -40311 / -40312 / -40313. `normalised` may be null.
int32_t net_mac_check(const char *mac, std::string *normalised);

// The related option's current value: the request's, else uci's (the
// request's uci context, or a private one when the context has none).
std::optional<std::string> net_related_value(ds_context *ctx, const net_rel_opt *rel);
