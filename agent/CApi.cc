#include "inside/CBorder.h"

// The agent and its transactions, and who hears of them.

namespace mrib {

namespace {

int checkNoCallback(const char* function, const mrib_agent& agent) noexcept {
  if (agent.callbacks == 0) return MRIB_OK;
  return fail(MRIB_ERROR_BUSY, "%s: not from inside a callback", function);
}

mrib_update updateOf(const mrib_agent& agent, U64 generation, const mrib_changes& changes, bool settled) {
  mrib_update update{};
  update.size = sizeof update;
  update.flags = settled ? U32{MRIB_UPDATE_SETTLED} : 0;
  if (agent.agent.mayDiffer()) update.flags |= MRIB_UPDATE_MAY_DIFFER;
  update.generation = generation;
  update.change_count = static_cast<U32>(changes.all.size());
  update.note_count = settled ? 0 : static_cast<U32>(agent.committed.transaction.notes().size());
  update.changes = &changes;
  return update;
}

/// Keeps the changes and hands them out.
void handOut(mrib_agent& agent, std::vector<Change>&& changes, bool settled, mrib_update* result) {
  agent.changes = std::move(changes);
  agent.handedOut = {agent.changes};
  if (result) writeSized(updateOf(agent, agent.agent.generation(), agent.handedOut, settled), result);
}

/// Whether a commit or a settling may begin.
int checkChange(const char* function, const mrib_agent& agent, const mrib_update* result) noexcept {
  const int code = checkNoCallback(function, agent);
  return code == MRIB_OK && result ? checkSized(function, "result", result) : code;
}

}  // namespace

}  // namespace mrib

using mrib::fail;
using mrib::with;

mrib_agent* mrib_create(const mrib_options* options) {
  mrib_agent* agent = nullptr;
  mrib::caught(__func__, [&](const char* function) {
    mrib_options given{};
    const int code = options ? mrib::readSized(function, "options", options, given) : MRIB_OK;
    mrib::Agent::Options real;
    if (given.rebuild_from != 0) real.rebuildFrom = given.rebuild_from;
    if (code == MRIB_OK) agent = new mrib_agent(real);
    return code;
  });
  return agent;
}

int mrib_free(mrib_agent* agent) {
  if (!agent) return MRIB_OK;
  const int code = mrib::checkNoCallback(__func__, *agent);
  if (code == MRIB_OK) delete agent;
  return code;
}

int mrib_begin(mrib_agent* agent) {
  return with(__func__, agent, [&](const char* function) -> int {
    if (agent->open) return fail(MRIB_ERROR_STATE, "%s: a transaction is open already", function);
    agent->pending.clear();
    agent->open = true;
    return MRIB_OK;
  });
}

int mrib_abort(mrib_agent* agent) {
  return with(__func__, agent, [&](const char* function) -> int {
    if (!agent->open) return fail(MRIB_ERROR_STATE, "%s: no transaction is open", function);
    agent->open = false;
    return MRIB_OK;
  });
}

int mrib_commit(mrib_agent* agent, mrib_update* result) {
  return with(__func__, agent, [&](const char* function) -> int {
    if (const int code = mrib::checkChange(function, *agent, result); code != MRIB_OK) return code;
    if (!agent->open) return fail(MRIB_ERROR_STATE, "%s: no transaction is open", function);
    agent->open = false;
    std::swap(agent->pending, agent->committed);
    mrib_agent::Pending& given = agent->committed;
    if (given.faultCount > 0) given.transaction.clear();
    if (given.faultCount > 0 && given.faults.empty()) {
      return fail(MRIB_ERROR_REFUSED, "%s: changes were not taken for want of memory", function);
    }
    if (given.faultCount > 0) return fail(MRIB_ERROR_REFUSED, std::move(given.faults));
    mrib::CommitResult committed;
    try {
      committed = agent->agent.commit(given.transaction);
    } catch (...) {  // it may be tried again
      std::swap(agent->pending, agent->committed);
      agent->open = true;
      throw;
    }
    if (!committed) {
      given.transaction.clear();
      return fail(MRIB_ERROR_REFUSED, std::move(committed.refusals));
    }
    mrib::handOut(*agent, std::move(committed.changes), false, result);
    return MRIB_OK;
  });
}

int mrib_settle(mrib_agent* agent, mrib_update* result) {
  return with(__func__, agent, [&](const char* function) -> int {
    if (const int code = mrib::checkChange(function, *agent, result); code != MRIB_OK) return code;
    mrib::SettleResult settled = agent->agent.settle();
    mrib::handOut(*agent, std::move(settled.changes), true, result);
    return MRIB_OK;
  });
}

const char* mrib_note(const mrib_agent* agent, size_t i) {
  if (mrib::check(__func__, agent) != MRIB_OK) return nullptr;
  const std::vector<std::string>& notes = agent->committed.transaction.notes();
  return i < notes.size() ? notes[i].c_str() : nullptr;
}

uint64_t mrib_subscribe(mrib_agent* agent, mrib_listener* listener, void* context) {
  uint64_t subscription = 0;
  with(__func__, agent, [&](const char* function) -> int {
    if (!listener) return mrib::failNull(function, "listener");
    subscription = agent->agent.subscribe([=](const mrib::Update& heard) noexcept {
      const mrib::InCallback inside(*agent);
      const mrib_changes changes{heard.changes};
      const mrib_update update = mrib::updateOf(*agent, heard.generation, changes, heard.settled);
      listener(context, &update);
    });
    return MRIB_OK;
  });
  return subscription;
}

int mrib_unsubscribe(mrib_agent* agent, uint64_t subscription) {
  return with(__func__, agent, [&](const char*) {
    // Number 0 is none, and what has unsubscribed in a listener has it until that returns.
    if (subscription != 0) agent->agent.unsubscribe(subscription);
    return MRIB_OK;
  });
}

int mrib_status_get(const mrib_agent* agent, mrib_status* status) {
  return with(__func__, agent, [&](const char* function) {
    if (const int code = mrib::checkSized(function, "status", status); code != MRIB_OK) return code;
    mrib_status now{};
    now.flags = agent->open ? U32{MRIB_OPEN} : 0;
    if (agent->agent.mayDiffer()) now.flags |= MRIB_MAY_DIFFER;
    now.generation = agent->agent.generation();
    now.healed = agent->agent.healed();
    now.route_count = static_cast<U32>(agent->agent.routes().size());
    mrib::writeSized(now, status);
    return int{MRIB_OK};
  });
}
