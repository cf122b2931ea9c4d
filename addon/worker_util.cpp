#include "worker_util.h"

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

void PlainWorker::OnError(const Napi::Error &error)
{
    Napi::Env env = Env();
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}
