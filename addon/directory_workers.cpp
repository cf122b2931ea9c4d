#include "directory_workers.h"

#include "tarntermchart.h"

#include "string_query.h"

void IsValidChartsDirectoryWorker::Execute()
{
    // The message may live in a buffer the next check overwrites: copy it now.
    const char *message = TarnwickAPI_IsValidChartDirectory(chartDir.c_str());
    if (message) SetError(BadResult(std::string(message)));
}

void StringQueryWorker::Execute()
{
    std::string error;
    RunStringQuery(query, chartDir, result, error);
    if (!error.empty()) SetError(error);
}

void StringQueryWorker::OnOK()
{
    Napi::Env env = Env();
    Callback().Call(env.Undefined(),
                    {env.Undefined(), Napi::String::New(env, result.data(), result.size())});
}

void StringQueryWorker::OnError(const Napi::Error &error)
{
    Napi::Env env = Env();
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}
