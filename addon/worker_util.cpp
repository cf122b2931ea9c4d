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
        if (info[i++].Type() != type) {
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
