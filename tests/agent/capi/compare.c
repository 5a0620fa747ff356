/* Asks an agent everything, and the judge whether it is right. */
#include "judge.h"

static uint32_t healed;

static void hear(void* context, const struct mrib_update* update) {
  struct mrib_next_hop hops[2][8];
  struct mrib_route before = {MRIB_SIZE(mrib_route), .next_hops = hops[0], .next_hop_room = 8};
  struct mrib_route after = {MRIB_SIZE(mrib_route), .next_hops = hops[1], .next_hop_room = 8};
  (void)context;
  for (uint32_t i = 0; mrib_change_at(update, i, &before, &after) == MRIB_OK; ++i)
    judge_heard(&before, &after);
  if (update->flags & MRIB_UPDATE_SETTLED) healed += update->change_count;
}

static int unresolved(void* count, const struct mrib_unresolved* u) {
  ++*(uint32_t*)count;
  return !judge_unresolved(u);
}

void judge_agent(struct mrib_agent* agent) {
  judge_anew();
  mrib_subscribe(agent, hear, NULL);
}

uint32_t judge_faults(struct mrib_agent* agent) {
  struct mrib_next_hop hops[8];
  struct mrib_route route = {MRIB_SIZE(mrib_route), .next_hops = hops, .next_hop_room = 8};
  uint32_t wrong = 0, i = 0, count = 0;
  for (; mrib_route_at(agent, i, &route) == MRIB_OK; ++i) wrong += !judge_route(&route);
  wrong += mrib_visit_unresolved(agent, unresolved, &count) != MRIB_OK;
  return wrong + (i != judge_route_count()) + (count != judge_unresolved_count()) + !judge_heard_all();
}

uint32_t judge_healed(void) {
  return healed;
}
