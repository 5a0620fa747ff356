/* What a callback may call, and what it may not. */
#include "check.h"

struct listener {
  struct mrib_agent* agent;
  uint64_t number, other;
  uint32_t heard, other_heard, visited;
  uint64_t generation;
};

static void hear_too(void* context, const struct mrib_update* update) {
  struct listener* l = context;
  ++l->other_heard;
  CHECK(update->generation > l->generation);
}

static void check_refused(struct mrib_agent* agent) {
  CHECK_FAILS(mrib_commit(agent, NULL), MRIB_ERROR_BUSY, "mrib_commit: not from inside a callback");
  CHECK_FAILS(mrib_settle(agent, NULL), MRIB_ERROR_BUSY, "mrib_settle: not from inside a callback");
  CHECK_FAILS(mrib_free(agent), MRIB_ERROR_BUSY, "mrib_free: not from inside a callback");
}

static int visit_mroute(void* context, const struct mrib_mroute* m) {
  struct listener* l = context;
  check_refused(l->agent);
  return m->rpf_interface ? (int)++l->visited : 0;
}

static int visit_unresolved(void* context, const struct mrib_unresolved* u) {
  struct listener* l = context;
  check_refused(l->agent);
  CHECK(mrib_visit_mroutes(l->agent, visit_mroute, l) > 0);
  return u->reason == MRIB_REASON_WAITING;
}

/* The MRIB is as after the update. */
static void check_questions(struct listener* l, const struct mrib_update* update) {
  struct mrib_status status = {MRIB_SIZE(mrib_status)};
  struct mrib_route before = {MRIB_SIZE(mrib_route)}, after = before, now = before;
  struct mrib_link link = {MRIB_SIZE(mrib_link)};
  const struct mrib_ip source = ip("203.0.113.9");
  CHECK_OK(mrib_status_get(l->agent, &status));
  CHECK(status.generation == update->generation);
  CHECK_OK(mrib_link_get(l->agent, 1, &link));
  CHECK_OK(mrib_route_at(l->agent, 0, &now));
  CHECK_OK(mrib_rpf(l->agent, &source, &now));
  for (uint32_t i = 0; mrib_change_at(update, i, &before, &after) == MRIB_OK; ++i) {
    const int code = mrib_route_get(l->agent, &after.prefix, &now);
    CHECK(code == (after.type == 0 ? MRIB_NOT_FOUND : MRIB_OK));
    CHECK(code == MRIB_NOT_FOUND || now.preference == after.preference);
  }
  CHECK(mrib_visit_unresolved(l->agent, visit_unresolved, l) >= 0);
}

static void hear(void* context, const struct mrib_update* update) {
  struct listener* l = context;
  const struct mrib_prefix lost = prefix("192.0.2.0/24");
  l->generation = update->generation;
  check_refused(l->agent);
  check_questions(l, update);
  CHECK(update->size == sizeof *update && update->note_count == (mrib_note(l->agent, 0) != NULL));
  if (++l->heard > 1) return;
  CHECK_OK(mrib_begin(l->agent)); /* for the host to commit */
  CHECK_OK(mrib_route_del(l->agent, &lost));
  l->other = mrib_subscribe(l->agent, hear_too, l);
  CHECK_OK(mrib_unsubscribe(l->agent, l->number));
}

void test_callbacks(void) {
  struct listener l = {.agent = router()};
  struct mrib_status status = {MRIB_SIZE(mrib_status)};
  struct mrib_update first = {MRIB_SIZE(mrib_update)}, second = first;
  const struct mrib_prefix net = prefix("198.51.100.0/24");
  l.number = mrib_subscribe(l.agent, hear, &l);
  CHECK(l.number != 0);
  CHECK_OK(mrib_begin(l.agent));
  CHECK_OK(mrib_route_del(l.agent, &net));
  CHECK_OK(mrib_commit(l.agent, &first));
  CHECK(l.heard == 1 && l.other_heard == 0 && l.visited > 0 && first.change_count == 1);
  CHECK_OK(mrib_status_get(l.agent, &status));
  CHECK(status.flags & MRIB_OPEN);
  CHECK_OK(mrib_commit(l.agent, &second)); /* what the listener has begun: the last way is gone */
  CHECK(l.heard == 1 && l.other_heard == 1 && second.change_count == 2);
  CHECK_OK(mrib_unsubscribe(l.agent, l.other));
  CHECK_OK(mrib_begin(l.agent));
  CHECK_OK(mrib_commit(l.agent, NULL));
  CHECK(l.other_heard == 1);
  CHECK_OK(mrib_free(l.agent));
}
