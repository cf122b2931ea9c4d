#include "directory_workers.h"

#include "tarntermchart.h"

#include "string_query.h"

void IsValidChartsDirectoryWorker::Execute()
{
    // The message may live in a buffer the next check overwrites: copy it now.
    const char *message = TarnwickAPI_IsValidChartDirectory(chartDir.c_str());
    if (!message) return;
    failure.Set(std::string(message));
    SetError(BadResult(failure.text));
}

void StringQueryWorker::Execute()
{
    std::string error;
    int decided = 0;
    RunStringQuery(query, chartDir, result, error, &decided);
    if (error.empty()) return;
    failure.Set(decided);
    SetError(error);
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
    DescribeFailure(env, error, failure);
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}

void WholeTextWorker::Execute()
{
    int r = reader(query, chartDir, text);
    if (r == 0) return;
    failure.Set(r);
    SetError(BadResult(r));
}

void WholeTextWorker::OnOK()
{
    Napi::Env env = Env();
    Callback().Call(env.Undefined(), {env.Undefined(), Napi::String::New(env, text)});
}

void WholeTextWorker::OnError(const Napi::Error &error)
{
    Napi::Env env = Env();
    DescribeFailure(env, error, failure);
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}
