// What the binding keeps per JavaScript environment: the calls held back
// for their directories, and the function that names a failure's code.
#ifndef TARNTERMCHART_ADDON_STATE_H
#define TARNTERMCHART_ADDON_STATE_H

#include <napi.h>

struct DirectoryCalls;

struct AddonState {
    // Owned; made and freed by the directory queue.
    DirectoryCalls *calls = nullptr;
    // codeOf(operation, result) -> the error's code string, set by the
    // package's loader; empty until then.
    Napi::FunctionReference codeOf;

    ~AddonState();
};

// The environment's state, made on first use.
AddonState &StateOf(Napi::Env env);
// The environment's state, or null while it has none (or is ending).
AddonState *FindState(Napi::Env env);

#endif
