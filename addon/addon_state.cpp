#include "addon_state.h"

void DeleteDirectoryCalls(DirectoryCalls *calls);

AddonState::~AddonState() { DeleteDirectoryCalls(calls); }

AddonState &StateOf(Napi::Env env)
{
    AddonState *state = env.GetInstanceData<AddonState>();
    if (!state) {
        state = new AddonState();
        env.SetInstanceData<AddonState>(state);
    }
    return *state;
}

AddonState *FindState(Napi::Env env) { return env.GetInstanceData<AddonState>(); }
