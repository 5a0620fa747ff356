/* What a host in C tells of its agent to the judge, and asks him. Each change is told like the agent's. */
#ifndef JUDGE_H
#define JUDGE_H

#include <mrib.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Begins with a new agent, and hears what it says. */
void judge_agent(struct mrib_agent* agent);
/* How much of its MRIB, of what it said of changes and of what is unresolved is wrong. */
uint32_t judge_faults(struct mrib_agent* agent);
/* How many prefixes were heard to be healed, over all agents. */
uint32_t judge_healed(void);

void judge_begin(void);
void judge_link_set(const struct mrib_link* link);
void judge_link_del(uint32_t index);
void judge_address_set(const struct mrib_address* address);
void judge_address_del(uint32_t link, const struct mrib_ip* ip);
void judge_route_set(const struct mrib_unicast* route);
void judge_route_del(const struct mrib_prefix* prefix);
void judge_mroute_set(const struct mrib_mroute* mroute);
void judge_mroute_del(const struct mrib_mroute* mroute);
/* Whether this outcome of a commit is right. */
int judge_commit(int accepted);

#ifdef __cplusplus
}
#endif

#endif
