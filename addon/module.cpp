// Module registration and the function table: each handler checks its
// arguments, copies them into a worker and queues it (the calls that write
// a chart directory through the directory queue); libraryVersion alone
// answers on the calling thread.  Beside the ten functions, "internals"
// holds what the package builds on them and nothing else exports.
#include <napi.h>

#include "addon_state.h"

#include "bundle_workers.h"
#include "combine_worker.h"
#include "dbf_worker.h"
#include "directory_queue.h"
#include "directory_workers.h"
#include "merge_worker.h"
#include "subset_worker.h"
#include "tarntermchart.h"

namespace {

Napi::Value QueryText(const Napi::CallbackInfo &info, StringQueryWorker::Query query,
                        const char *operation)
{
    if (!CheckArguments(info, {napi_string, napi_function})) return info.Env().Undefined();
    (new StringQueryWorker(info[1].As<Napi::Function>(), StringArg(info, 0), query, operation))->Queue();
    return info.Env().Undefined();
}

// The JavaScript name says "info"; the library entry says "into".
Napi::Value CombineVFRinfoIFR(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_string, napi_function})) return info.Env().Undefined();
    const std::string source = StringArg(info, 0), destination = StringArg(info, 1);
    QueueForDirectories(info.Env(), new CombineVfrIntoIfrWorker(info[2].As<Napi::Function>(), source, destination),
                        {{source, false}, {destination, true}});
    return info.Env().Undefined();
}

Napi::Value CoverageInfo(const Napi::CallbackInfo &info)
{
    return QueryText(info, TarnwickAPI_CoverageInfo, "coverageInfo");
}

Napi::Value CycleNumber(const Napi::CallbackInfo &info)
{
    return QueryText(info, TarnwickAPI_CycleNumber, "cycleNumber");
}

Napi::Value CycleNumberDisplay(const Napi::CallbackInfo &info)
{
    return QueryText(info, TarnwickAPI_CycleNumber_Display, "cycleNumberDisplay");
}

Napi::Value DumpChartsBin(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_string, napi_number, napi_number, napi_function}))
        return info.Env().Undefined();
    (new DumpChartsBinWorker(info[4].As<Napi::Function>(), StringArg(info, 0), StringArg(info, 1),
                             info[2].As<Napi::Number>().Int32Value(),
                             info[3].As<Napi::Number>().Int32Value()))
        ->Queue();
    return info.Env().Undefined();
}

Napi::Value DumpDbf(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_string, napi_function})) return info.Env().Undefined();
    (new DumpDbfWorker(info[2].As<Napi::Function>(), StringArg(info, 0), StringArg(info, 1)))->Queue();
    return info.Env().Undefined();
}

Napi::Value IsValidChartDirectory(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_function})) return info.Env().Undefined();
    (new IsValidChartsDirectoryWorker(info[1].As<Napi::Function>(), StringArg(info, 0)))->Queue();
    return info.Env().Undefined();
}

Napi::Value LibraryVersion(const Napi::CallbackInfo &info)
{
    return Napi::String::New(info.Env(), TarnwickAPI_LibraryVersion());
}

Napi::Value Merge(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_function})) return info.Env().Undefined();
    const std::string chartDir = StringArg(info, 0);
    QueueForDirectories(info.Env(), new MergeWorker(chartDir, info[1].As<Napi::Function>()), {{chartDir, true}});
    return info.Env().Undefined();
}

Napi::Value SubsetCharts(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_string, napi_number, napi_number, napi_number,
                               napi_number, napi_function}))
        return info.Env().Undefined();
    const std::string source = StringArg(info, 0), destination = StringArg(info, 1);
    QueueForDirectories(info.Env(),
                        new SubsetChartsWorker(info[6].As<Napi::Function>(), source, destination,
                                               info[2].As<Napi::Number>().DoubleValue(),
                                               info[3].As<Napi::Number>().DoubleValue(),
                                               info[4].As<Napi::Number>().DoubleValue(),
                                               info[5].As<Napi::Number>().DoubleValue()),
                        {{source, false}, {destination, true}});
    return info.Env().Undefined();
}

// internals.readText(kind, chartDir, callback): the whole text of the
// cycle ("cycle"), the period label ("period") or the region names
// ("coverage"), where the ten functions pass on only what the buffer
// protocol lets through.
Napi::Value ReadText(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_string, napi_string, napi_function})) return info.Env().Undefined();
    struct Kind {
        const char *name;
        StringQuery query;
        WholeTextWorker::Reader reader;
        const char *operation;
    };
    static const Kind kinds[] = {
        {"cycle", TarnwickAPI_CycleNumber, ReadCycleText, "cycleNumber"},
        {"period", TarnwickAPI_CycleNumber_Display, ReadLabelText, "cycleNumberDisplay"},
        {"coverage", TarnwickAPI_CoverageInfo, ReadCoverageText, "coverageInfo"},
    };
    const std::string name = StringArg(info, 0);
    for (const Kind &kind : kinds) {
        if (name != kind.name) continue;
        (new WholeTextWorker(info[2].As<Napi::Function>(), StringArg(info, 1), kind.query, kind.reader,
                             kind.operation))
            ->Queue();
        return info.Env().Undefined();
    }
    Napi::TypeError::New(info.Env(), "Unknown text \"" + name + "\".").ThrowAsJavaScriptException();
    return info.Env().Undefined();
}

// internals.setCodeNamer(codeOf): codeOf(operation, result) names the code
// of each failure from now on (a string; anything else names none).
Napi::Value SetCodeNamer(const Napi::CallbackInfo &info)
{
    if (!CheckArguments(info, {napi_function})) return info.Env().Undefined();
    StateOf(info.Env()).codeOf = Napi::Persistent(info[0].As<Napi::Function>());
    return info.Env().Undefined();
}

Napi::Object Init(Napi::Env env, Napi::Object exports)
{
    exports.Set("combineVFRinfoIFR", Napi::Function::New(env, CombineVFRinfoIFR));
    exports.Set("coverageInfo", Napi::Function::New(env, CoverageInfo));
    exports.Set("cycleNumber", Napi::Function::New(env, CycleNumber));
    exports.Set("cycleNumberDisplay", Napi::Function::New(env, CycleNumberDisplay));
    exports.Set("dumpChartsBin", Napi::Function::New(env, DumpChartsBin));
    exports.Set("dumpDbf", Napi::Function::New(env, DumpDbf));
    exports.Set("isValidChartDirectory", Napi::Function::New(env, IsValidChartDirectory));
    exports.Set("libraryVersion", Napi::Function::New(env, LibraryVersion));
    exports.Set("merge", Napi::Function::New(env, Merge));
    exports.Set("subsetCharts", Napi::Function::New(env, SubsetCharts));
    Napi::Object internals = Napi::Object::New(env);
    internals.Set("readText", Napi::Function::New(env, ReadText));
    internals.Set("setCodeNamer", Napi::Function::New(env, SetCodeNamer));
    exports.Set("internals", internals);
    return exports;
}

}  // namespace

// The module is built for Node-API version 8.
extern "C" NAPI_MODULE_EXPORT int32_t node_api_module_get_api_version_v1(void) { return 8; }

extern "C" NAPI_MODULE_EXPORT napi_value napi_register_module_v1(napi_env env, napi_value exports)
{
    return Napi::RegisterModule(env, exports, Init);
}
