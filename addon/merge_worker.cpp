#include "merge_worker.h"

#include "tarntermchart.h"

namespace {

// Called by the library on the worker thread.  Each Send replaces a report
// not yet delivered, so reports that come faster than the JavaScript thread
// takes them are coalesced and the newest wins.  It never asks the merge to
// stop: a merge started from JavaScript runs to its own end.
int Relay(void *context, int percent)
{
    auto cell = static_cast<const MergeWorker::ExecutionProgress **>(context);
    (*cell)->Send(&percent, 1);
    return 0;
}

}  // namespace

void MergeWorker::Execute(const ExecutionProgress &progress)
{
    progressCell = new const ExecutionProgress *(&progress);
    int result = TarnwickAPI_Merge(chartDir.c_str(), Relay, progressCell);
    delete progressCell;
    progressCell = nullptr;
    if (result == 0) return;
    failure.Set(result);
    SetError(BadResult(result));
}

void MergeWorker::OnProgress(const int *data, size_t)
{
    if (!data) return;  // a wake-up with nothing pending
    Napi::Env env = Env();
    Napi::HandleScope scope(env);
    Callback().Call(env.Undefined(),
                    {env.Undefined(), env.Undefined(), Napi::Number::New(env, data[0])});
}

void MergeWorker::OnOK()
{
    Napi::Env env = Env();
    Napi::HandleScope scope(env);
    Callback().Call(env.Undefined(), {env.Undefined(), Napi::Boolean::New(env, true), env.Undefined()});
}

void MergeWorker::OnError(const Napi::Error &error)
{
    Napi::Env env = Env();
    DescribeFailure(env, error, failure);
    Callback().Call(env.Undefined(), {error.Value(), env.Undefined()});
}
