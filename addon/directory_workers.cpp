#include "directory_workers.h"

#include "tarntermchart.h"

#include <stdlib.h>

#include <memory>

void IsValidChartsDirectoryWorker::Execute()
{
    // The message may live in a buffer the next check overwrites: copy it now.
    const char *message = TarnwickAPI_IsValidChartDirectory(chartDir.c_str());
    if (message) SetError(BadResult(std::string(message)));
}

void StringQueryWorker::Execute()
{
    int n = query(chartDir.c_str(), nullptr, 0);
    if (n < 0)
        SetError("Received bad result retrieving buffer size: \"" + std::to_string(n) + "\".");
    // A negative size gets no buffer; a size of 0 still gets a byte for the
    // terminator the fill call may store.
    std::unique_ptr<char, decltype(&free)> buffer(
        n < 0 ? nullptr : (char *)malloc(n > 0 ? (size_t)n : 1), &free);
    int r = query(chartDir.c_str(), buffer.get(), n);
    if (r != 0) {
        SetError("Received bad result retrieving output value: \"" + std::to_string(r) + "\".");
        return;
    }
    if (buffer) result.assign(buffer.get(), (size_t)n);
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
