#include "directory_queue.h"

#include <algorithm>
#include <deque>

#include "addon_state.h"
#include "platform/platform.h"

namespace {

// A directory by identity, so that every spelling of it (a trailing
// slash, "dir/.", a link to it) is the same directory; one that cannot be
// reached is known by its path as given.
struct Claim {
    std::string key;
    bool writes;
};

bool Conflict(const std::vector<Claim> &a, const std::vector<Claim> &b)
{
    for (const Claim &x : a)
        for (const Claim &y : b)
            if (x.key == y.key && (x.writes || y.writes)) return true;
    return false;
}

struct Call {
    Napi::AsyncWorker *worker;
    std::vector<Claim> claims;
};

}  // namespace

// The calls of one JavaScript environment.
struct DirectoryCalls {
    std::vector<Call> running;
    std::deque<Call> waiting;
    bool closing = false;

    bool MayStart(const Call &call, size_t waitingBefore) const
    {
        for (const Call &r : running)
            if (Conflict(r.claims, call.claims)) return false;
        for (size_t i = 0; i < waitingBefore; i++)
            if (Conflict(waiting[i].claims, call.claims)) return false;
        return true;
    }

    // The environment ends: calls never started are dropped.
    ~DirectoryCalls()
    {
        closing = true;
        for (Call &call : waiting) delete call.worker;
    }
};

void DeleteDirectoryCalls(DirectoryCalls *calls) { delete calls; }

namespace {

DirectoryCalls &CallsOf(Napi::Env env)
{
    AddonState &state = StateOf(env);
    if (!state.calls) state.calls = new DirectoryCalls();
    return *state.calls;
}

std::string KeyOf(const std::string &directory)
{
    FileIdentity identity;
    if (IdentityOf(directory.c_str(), &identity))
        return "id:" + std::to_string(identity.device) + ":" + std::to_string(identity.inode);
    return "path:" + directory;
}

}  // namespace

void QueueForDirectories(Napi::Env env, Napi::AsyncWorker *worker, const std::vector<DirectoryClaim> &claims)
{
    DirectoryCalls &calls = CallsOf(env);
    Call call{worker, {}};
    for (const DirectoryClaim &claim : claims) call.claims.push_back({KeyOf(claim.directory), claim.writes});
    if (calls.MayStart(call, calls.waiting.size())) {
        calls.running.push_back(call);
        worker->Queue();
    } else {
        calls.waiting.push_back(call);
    }
}

void DirectoryCallDone(Napi::Env env, Napi::AsyncWorker *worker)
{
    AddonState *state = FindState(env);
    DirectoryCalls *calls = state ? state->calls : nullptr;
    if (!calls || calls->closing) return;
    calls->running.erase(std::remove_if(calls->running.begin(), calls->running.end(),
                                        [worker](const Call &call) { return call.worker == worker; }),
                         calls->running.end());
    for (size_t i = 0; i < calls->waiting.size();) {
        if (!calls->MayStart(calls->waiting[i], i)) {
            i++;
            continue;
        }
        Call call = calls->waiting[i];
        calls->waiting.erase(calls->waiting.begin() + (std::ptrdiff_t)i);
        calls->running.push_back(call);
        call.worker->Queue();
    }
}
