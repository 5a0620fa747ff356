#ifndef MRIB_H
#define MRIB_H

/* The C API of libmrib.
 *
 * A multicast router takes a packet only if it came in by the way that leads back to its source. An agent
 * works out these ways, the multicast RIB (MRIB): the host feeds it links, addresses, unicast routes and
 * configured multicast routes in transactions, hears what has changed, and asks by which way packets from a
 * source must come in. An agent has no loop, no thread and no I/O.
 *
 * A host writes:
 *
 *     struct mrib_agent *agent = mrib_create(NULL);
 *     mrib_begin(agent);
 *     mrib_link_set(agent, &(struct mrib_link){MRIB_SIZE(mrib_link), .index = 2, .name = "eth0"});
 *     ...
 *     if (mrib_commit(agent, NULL) != MRIB_OK)
 *       for (size_t i = 0; i < mrib_error_count(); ++i) complain(mrib_error_text(i));
 *
 * Codes. What returns int returns MRIB_OK, MRIB_NOT_FOUND, or a negative code; then mrib_error_text says what
 * was wrong and names it. Every pointer may be NULL: where that means nothing, it is MRIB_ERROR_ARGUMENT. An
 * agent that was freed and a callback that is no function cannot be told from good ones.
 *
 * Ownership. An agent is its creator's, who frees it. What is handed in is copied before the call returns,
 * and nothing that is handed out has to be freed; how long it lives is said where it is.
 *
 * Threads. One thread at a time calls with an agent; different agents have nothing in common. The calls that
 * take it as const may run in several at once, as long as no other runs. Errors belong to the thread whose
 * call has failed.
 *
 * Callbacks run inside the call that they belong to, on its thread. They may call everything but mrib_commit,
 * mrib_settle and mrib_free with the same agent, which answer MRIB_ERROR_BUSY and do nothing. They must
 * return: neither throw nor jump out.
 *
 * Sized structs begin with their size, which the caller sets and never the library, so that a struct can grow
 * at its end: what a caller does not know of is 0 for the library, and the other way round. A caller that is
 * newer than the library is refused (MRIB_ERROR_SIZE) if it sets something that the library does not know. So
 * set the size and leave the rest 0, as an initialiser with MRIB_SIZE does. Values without size (mrib_ip,
 * mrib_prefix, mrib_next_hop) never change.
 *
 * Cost is given for each call that does not take the same little time always. "Allocates nothing" holds for
 * success and failure. */

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define MRIB_VERSION_MAJOR 0
#define MRIB_VERSION_MINOR 1
#define MRIB_VERSION_PATCH 0
#define MRIB_VERSION ((uint32_t)(MRIB_VERSION_MAJOR << 16 | MRIB_VERSION_MINOR << 8 | MRIB_VERSION_PATCH))

#if defined(__GNUC__)
#define MRIB_API __attribute__((visibility("default")))
#else
#define MRIB_API
#endif

/* Sets the size in an initialiser: struct mrib_link eth0 = {MRIB_SIZE(mrib_link), .index = 2, .name =
 * "eth0"}; */
#define MRIB_SIZE(name) .size = (uint32_t)sizeof(struct name)

#ifdef __cplusplus
extern "C" {
#endif

/* What calls return. */
enum mrib_code {
  MRIB_OK = 0,
  MRIB_NOT_FOUND = 1,       /* no error: there is none, and no text either */
  MRIB_ERROR_ARGUMENT = -1, /* a NULL, or a value that means nothing */
  MRIB_ERROR_SIZE = -2,  /* of a struct: none that it ever had, or it sets what this library does not know */
  MRIB_ERROR_STATE = -3, /* no transaction is open, or one is already */
  MRIB_ERROR_REFUSED = -4, /* the transaction, as a whole; there may be several texts */
  MRIB_ERROR_BUSY = -5,    /* not from inside a callback */
  MRIB_ERROR_MEMORY = -6,  /* there is none left; nothing has changed, and it may be tried again */
  MRIB_ERROR_BROKEN = -7   /* a fault of this library; nothing has changed */
};

/* ---- Values ---- */

/* Families, as IP numbers its versions. Only IPv4 gets into an agent as yet. */
enum mrib_family { MRIB_NONE = 0, MRIB_IPV4 = 4, MRIB_IPV6 = 6 };

/* An address: its bytes in network order, IPv4 in the first four. All 0 is no address. */
struct mrib_ip {
  uint8_t family;
  uint8_t padding[3]; /* never read */
  uint8_t bytes[16];
};

/* A prefix. Its host bits must be 0. */
struct mrib_prefix {
  uint8_t family;
  uint8_t length;
  uint8_t padding[2]; /* never read */
  uint8_t bytes[16];
};

/* A way: the neighbour, MRIB_NONE on the link itself (0.0.0.0 is taken for it too), and the link, in what is
 * handed out 0 if the unicast route names one that does not exist. */
struct mrib_next_hop {
  struct mrib_ip neighbour;
  uint32_t link;
};

/* From a struct in_addr, or whatever else has the four bytes in network order. */
static inline struct mrib_ip mrib_ipv4(const void* in_addr) {
  struct mrib_ip ip;
  memset(&ip, 0, sizeof ip);
  ip.family = MRIB_IPV4;
  memcpy(ip.bytes, in_addr, 4);
  return ip;
}
static inline struct mrib_prefix mrib_ipv4_prefix(const void* in_addr, uint8_t length) {
  struct mrib_prefix prefix;
  memset(&prefix, 0, sizeof prefix);
  prefix.family = MRIB_IPV4;
  prefix.length = length;
  memcpy(prefix.bytes, in_addr, 4);
  return prefix;
}

/* Read "192.0.2.1" and "192.0.2.0/24", of either family. A text that is none is MRIB_ERROR_ARGUMENT and
 * quoted. */
MRIB_API int mrib_ip_parse(const char* text, struct mrib_ip* ip);
MRIB_API int mrib_prefix_parse(const char* text, struct mrib_prefix* prefix);
/* So many bytes are enough for the text of each. */
#define MRIB_IP_TEXT 46
#define MRIB_PREFIX_TEXT 50
/* Write the text and return `buffer`, or NULL. The text of MRIB_NONE is empty. */
MRIB_API const char* mrib_ip_text(const struct mrib_ip* ip, char* buffer, size_t size);
MRIB_API const char* mrib_prefix_text(const struct mrib_prefix* prefix, char* buffer, size_t size);

/* ---- Errors and version ---- */

/* What was wrong with the last call of this thread that failed: so many texts, the first 100 of a
 * transaction. They live until the next one that fails. Asking never fails and leaves them. */
MRIB_API size_t mrib_error_count(void);
/* The i-th text, a sentence without full stop; NULL beyond the last. */
MRIB_API const char* mrib_error_text(size_t i);
/* The origins of the configured routes that the i-th text names: fills in the first `room`, returns how many
 * there are. A circle names all routes on it. */
MRIB_API size_t mrib_error_origins(size_t i, uint64_t* origins, size_t room);

/* MRIB_VERSION of the library that runs. While the major number is 0, another minor one is another ABI, and
 * so another soname. */
MRIB_API uint32_t mrib_version(void);

/* ---- The agent ---- */

struct mrib_agent;

struct mrib_options {
  uint32_t size;
  /* From so many changed prefixes on, if they are a quarter of all, a commit starts afresh instead of
   * following each change, which costs less. 0: 256. */
  uint32_t rebuild_from;
};

/* An empty agent; without options (NULL) all are 0. NULL on failure. */
MRIB_API struct mrib_agent* mrib_create(const struct mrib_options* options);
/* Frees an agent with all that it has; NULL is fine. What is subscribed hears nothing of it. Costs what the
 * routes have cost. Refused in callbacks. */
MRIB_API int mrib_free(struct mrib_agent* agent);

enum mrib_status_flag {
  MRIB_MAY_DIFFER = 1, /* settling might find a difference */
  MRIB_OPEN = 2        /* a transaction is open */
};

struct mrib_status {
  uint32_t size;
  uint32_t flags;       /* mrib_status_flag */
  uint64_t generation;  /* one more for each commit that was applied and each settling that healed */
  uint64_t healed;      /* prefixes that settling has healed */
  uint32_t route_count; /* in the MRIB */
  uint32_t reserved;    /* 0 */
};

MRIB_API int mrib_status_get(const struct mrib_agent* agent, struct mrib_status* status);

/* ---- Transactions ---- */

/* Changes are collected between mrib_begin and mrib_commit, and have no effect before. An agent has one open
 * transaction at most. Each change is checked at once, but need not be: one that fails (whatever the reason)
 * is remembered, and mrib_commit refuses the transaction with the texts of all. To set what is there replaces
 * it; to delete what is not is fine. What is said of one thing later counts. */

/* Opens a transaction; inside a listener too, for the host to commit afterwards. */
MRIB_API int mrib_begin(struct mrib_agent* agent);
/* Drops the open transaction. */
MRIB_API int mrib_abort(struct mrib_agent* agent);

enum mrib_link_flag { MRIB_LINK_DOWN = 1, MRIB_LINK_NO_CARRIER = 2 };

/* An interface. Its index is the host's own (the kernel's), not 0; no two have the same name. One that gets
 * another name is another interface. The flags appear in reasons and filter nothing: the unicast routes
 * decide. */
struct mrib_link {
  uint32_t size;
  uint32_t index;
  const char* name;
  uint32_t flags;    /* mrib_link_flag */
  uint32_t reserved; /* 0 */
};

MRIB_API int mrib_link_set(struct mrib_agent* agent, const struct mrib_link* link);
/* With its addresses. Unicast routes stay, with next hops on link 0. */
MRIB_API int mrib_link_del(struct mrib_agent* agent, uint32_t index);

enum mrib_address_flag { MRIB_SECONDARY = 1 };

/* An address of an interface, which may itself come later. RPFs by this interface resolve by its lowest
 * address that is not secondary. */
struct mrib_address {
  uint32_t size;
  uint32_t link;
  struct mrib_ip ip;
  uint32_t flags; /* mrib_address_flag */
};

MRIB_API int mrib_address_set(struct mrib_agent* agent, const struct mrib_address* address);
MRIB_API int mrib_address_del(struct mrib_agent* agent, uint32_t link, const struct mrib_ip* ip);

enum mrib_type {
  MRIB_DROP = 1,
  MRIB_RECEIVE = 2,
  MRIB_STATIC = 3,
  MRIB_MULTICAST_STATIC = 4, /* of the MRIB: made from configuration */
  MRIB_IGP = 5,
  MRIB_EGP = 6,
  MRIB_CONNECTED = 7
};

/* A route of the unicast table. Those of type MRIB_CONNECTED with a next hop go into the MRIB. Of more than
 * 128 next hops the first 128 are kept; mrib_note says so. */
struct mrib_unicast {
  uint32_t size;
  uint8_t type; /* mrib_type */
  uint8_t preference;
  uint16_t reserved; /* 0 */
  struct mrib_prefix prefix;
  uint32_t next_hop_count;
  const struct mrib_next_hop* next_hops; /* neighbour MRIB_NONE: on the link itself */
};

MRIB_API int mrib_route_set(struct mrib_agent* agent, const struct mrib_unicast* route);
MRIB_API int mrib_route_del(struct mrib_agent* agent, const struct mrib_prefix* prefix);

/* A configured multicast route: packets from sources in `prefix` come in by the way to `rpf_address`, or by
 * the interface of the name `rpf_interface`; one of them. The lowest preference with an RPF that resolves
 * wins. `origin` is the host's own number for the route, such as its line; texts name it when it is not 0. */
struct mrib_mroute {
  uint32_t size;
  uint32_t preference; /* 1 to 255 */
  struct mrib_prefix prefix;
  struct mrib_ip rpf_address;
  const char* rpf_interface;
  uint64_t origin;
};

/* Adds a route beside others of its prefix, or gives the one with the same prefix, RPF and preference this
 * origin. */
MRIB_API int mrib_mroute_set(struct mrib_agent* agent, const struct mrib_mroute* mroute);
/* Deletes the one with this prefix, RPF and preference. */
MRIB_API int mrib_mroute_del(struct mrib_agent* agent, const struct mrib_mroute* mroute);
/* Deletes all: a configuration that is given anew begins with this. What comes back in the same transaction
 * is not touched. */
MRIB_API int mrib_mroute_del_all(struct mrib_agent* agent);

/* ---- What changes ---- */

enum mrib_update_flag {
  MRIB_UPDATE_SETTLED = 1,   /* the changes were healed, not committed */
  MRIB_UPDATE_MAY_DIFFER = 2 /* the MRIB may differ from the right answer until it is settled */
};

struct mrib_changes;

/* The changes from one generation to the next, each prefix once. */
struct mrib_update {
  uint32_t size;
  uint32_t flags; /* mrib_update_flag */
  uint64_t generation;
  uint32_t change_count;
  uint32_t note_count;                /* see mrib_note */
  const struct mrib_changes* changes; /* for mrib_change_at */
};

/* Applies the open transaction or refuses it (MRIB_ERROR_REFUSED, with texts), as a whole. It is over in both
 * cases, but stays open for MRIB_ERROR_MEMORY, MRIB_ERROR_BUSY, and a `result` of wrong size. `result` may be
 * NULL; its changes live until the next commit or settling. Costs half a microsecond for each route that
 * changes or depends on one that does, at most a microsecond for each route that there is. Refused in
 * callbacks. */
MRIB_API int mrib_commit(struct mrib_agent* agent, struct mrib_update* result);
/* Makes the MRIB the one answer to the present inputs, whatever happened before; needed only when a commit
 * says that the MRIB may differ, and the host chooses when. `result` as for mrib_commit. Costs a microsecond
 * for each route. Refused in callbacks. */
MRIB_API int mrib_settle(struct mrib_agent* agent, struct mrib_update* result);
/* What the last commit took only in part: the i-th text, NULL beyond the last. Lives until the next commit.
 */
MRIB_API const char* mrib_note(const struct mrib_agent* agent, size_t i);

/* Hears of every commit that was applied and every settling that healed, before these return, in order. The
 * update and all in it live until it returns. The MRIB is as after the update. */
typedef void mrib_listener(void* context, const struct mrib_update* update);
/* Returns a number to unsubscribe with, 0 on failure. One that subscribes in a listener hears of the next
 * update on. */
MRIB_API uint64_t mrib_subscribe(struct mrib_agent* agent, mrib_listener* listener, void* context);
/* In listeners too, of itself too; from then on it hears nothing. A number that is none is fine. */
MRIB_API int mrib_unsubscribe(struct mrib_agent* agent, uint64_t subscription);

/* ---- Questions ---- */

/* A route of the MRIB, filled in by the library: copied from the unicast table (MRIB_CONNECTED), or made from
 * configuration (MRIB_MULTICAST_STATIC; MRIB_CONNECTED when it stands in for a connected one). Up to
 * `next_hop_room` next hops are written to `next_hops`, which are the caller's, in order of link and
 * neighbour; `next_hop_count` says how many there are. On the link itself the neighbour is MRIB_NONE, which
 * is the source. */
struct mrib_route {
  uint32_t size;
  uint8_t type; /* mrib_type, 0: no route */
  uint8_t preference;
  uint16_t reserved; /* 0 */
  struct mrib_prefix prefix;
  uint32_t next_hop_count;
  struct mrib_next_hop* next_hops; /* set by the caller, or NULL */
  uint32_t next_hop_room;          /* set by the caller */
  uint32_t reserved2;              /* 0 */
};

/* The route for packets from `source`, or MRIB_NOT_FOUND. A look-up in a trie, and one line of memory behind
 * it; allocates nothing. */
MRIB_API int mrib_rpf(const struct mrib_agent* agent, const struct mrib_ip* source, struct mrib_route* route);
/* The route of this very prefix, or MRIB_NOT_FOUND. Allocates nothing. */
MRIB_API int mrib_route_get(const struct mrib_agent* agent, const struct mrib_prefix* prefix,
                            struct mrib_route* route);
/* All routes, in no order: the i-th of `route_count` in struct mrib_status, MRIB_NOT_FOUND beyond the last.
 * The order holds until the next commit or settling. Allocates nothing. */
MRIB_API int mrib_route_at(const struct mrib_agent* agent, uint32_t i, struct mrib_route* route);
/* The i-th change: the route before and after, of type 0 if there was none or is none any more; one of the
 * two may be NULL. MRIB_NOT_FOUND beyond the last. Allocates nothing. */
MRIB_API int mrib_change_at(const struct mrib_update* update, uint32_t i, struct mrib_route* before,
                            struct mrib_route* after);
/* The link of this index, or MRIB_NOT_FOUND. Its name lives until the next commit. Allocates nothing. After
 * MRIB_ERROR_MEMORY of a commit or a settling it may have the same code until one of them or a walk is done.
 */
MRIB_API int mrib_link_get(const struct mrib_agent* agent, uint32_t index, struct mrib_link* link);

/* A callback that returns 0 goes on; anything else ends the walk and is what that returns: choose a positive
 * one. What it is given lives until it returns, and is of the library's size. */
typedef int mrib_mroute_visitor(void* context, const struct mrib_mroute* mroute);
/* All configured routes, by prefix, preference and RPF. Sorts them first. */
MRIB_API int mrib_visit_mroutes(struct mrib_agent* agent, mrib_mroute_visitor* visitor, void* context);

enum mrib_reason {
  MRIB_REASON_NO_INTERFACE = 1, /* there is no interface of this name */
  MRIB_REASON_NO_ADDRESS = 2,   /* the interface has no address */
  MRIB_REASON_NO_ROUTE = 3,     /* no MRIB route covers the RPF address */
  MRIB_REASON_ONLY_DEFAULT = 4, /* only the default route does, which resolves nothing */
  MRIB_REASON_ITSELF = 5,       /* the longest match is the prefix itself */
  MRIB_REASON_COVERED = 6,      /* the longest match is shorter than the prefix and covers it */
  MRIB_REASON_HELD_BACK = 7,    /* with the present interface addresses it lies on a circle */
  MRIB_REASON_WAITING = 8,      /* no error: a better preference is in force */
  MRIB_REASON_UNSETTLED = 9     /* it resolves, and settling would install it */
};

enum mrib_unresolved_flag {
  MRIB_ANOTHER_RESOLVES = 1, /* another RPF of the same preference is in force */
  MRIB_RPF_LINK_DOWN = 2     /* it names an interface that is down or has no carrier */
};

/* A configured route that is not in force. */
struct mrib_unresolved {
  uint32_t size;
  uint32_t reason; /* mrib_reason; there may be more of them in a newer library */
  const struct mrib_mroute* mroute;
  const char* text;         /* the reason as a sentence without full stop */
  struct mrib_ip address;   /* that it would resolve by, or MRIB_NONE */
  struct mrib_prefix match; /* for ONLY_DEFAULT, ITSELF and COVERED, else MRIB_NONE */
  uint32_t installed;       /* the preference that is in force, 0: none */
  uint32_t flags;           /* mrib_unresolved_flag */
};

typedef int mrib_unresolved_visitor(void* context, const struct mrib_unresolved* unresolved);
/* The configured routes that are not in force, in the order of mrib_visit_mroutes. Sorts them first, and
 * costs a look-up for each configured route. */
MRIB_API int mrib_visit_unresolved(struct mrib_agent* agent, mrib_unresolved_visitor* visitor, void* context);

#ifdef __cplusplus
}
#endif

#endif
