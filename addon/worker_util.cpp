#include "worker_util.h"

#include "addon_state.h"

std::string BadResult(const std::string &result)
{
    return "Received bad result: \"" + result + "\".";
}

std::string BadResult(int result) { return BadResult(std::to_string(result)); }

bool CheckArguments(const Napi::CallbackInfo &info, std::initializer_list<napi_valuetype> types)
{
    Napi::Env env = info.Env();
    if (info.Length() != types.size()) {
        Napi::TypeError::New(env, "Wrong number of arguments.").ThrowAsJavaScriptException();
        return false;
    }
    size_t i = 0;
    for (napi_valuetype type : types) {
        const Napi::Value value = info[i++];
        // A string holding a NUL would reach the library cut at it, naming
        // another file than the caller named: it is no path at all.
        const bool cut = type == napi_string && value.Type() == napi_string &&
                         value.As<Napi::String>().Utf8Value().find('\0') != std::string::npos;
        if (value.Type() != type || cut) {
            Napi::TypeError::New(env, "Wrong argument type.").ThrowAsJavaScriptException();
            return false;
        }
    }
    return true;
}

void PlainWorker::OnOK()
{
    Napi::Env env = Env();
    Callback().Call(env.Undefined(), {env.Undefined(), env.Undefined()});
}

void DescribeFailure(Napi::Env env, const Napi::Error &error, const Failure &failure)
{
    Napi::HandleScope scope(env);
    Napi::Object object = error.Value();
    Napi::Value result = failure.isText ? Napi::Value(Napi::String::New(env, failure.text))
                                        : Napi::Value(Napi::Number::New(env, failure.result));
    Napi::Value operation = Napi::String::New(env, failure.operation);
    AddonState *state = FindState(env);
    if (state && !state->codeOf.IsEmpty()) {
        Napi::Value code = state->codeOf.Call({operation, result});
        // A naming function that throws names nothing; the failure is
        // still reported.
        if (env.IsExceptionPending()) env.GetAndClearPendingException();
        else if (code.IsString()) object.Set("code", code);
    }
    object.Set("result", result);
    object.Set("operation", operation);
}

void PlainWorker::OnError(const Napi::Error &error)
{
    Napi::Env env = Env();
    DescribeFailure(env, error, failure);
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}
