// Workers of the directory queries: validity and the three text queries.
#ifndef TARNTERMCHART_DIRECTORY_WORKERS_H
#define TARNTERMCHART_DIRECTORY_WORKERS_H

#include "string_query.h"
#include "worker_util.h"

class IsValidChartsDirectoryWorker : public PlainWorker {
public:
    IsValidChartsDirectoryWorker(const Napi::Function &callback, std::string chartDir)
        : PlainWorker(callback), chartDir(std::move(chartDir)) {}
    void Execute() override;

private:
    std::string chartDir;
};

// One worker for coverageInfo, cycleNumber and cycleNumberDisplay: a size
// query, then a fill call with a buffer of exactly that size.
class StringQueryWorker : public Napi::AsyncWorker {
public:
    using Query = StringQuery;
    StringQueryWorker(const Napi::Function &callback, std::string chartDir, Query query)
        : Napi::AsyncWorker(callback), chartDir(std::move(chartDir)), query(query) {}
    void Execute() override;
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

private:
    std::string chartDir;
    Query query;
    std::string result;
};

#endif
