// Workers of the directory queries: validity and the three text queries.
#ifndef TARNTERMCHART_DIRECTORY_WORKERS_H
#define TARNTERMCHART_DIRECTORY_WORKERS_H

#include "string_query.h"
#include "worker_util.h"

class IsValidChartsDirectoryWorker : public PlainWorker {
public:
    IsValidChartsDirectoryWorker(const Napi::Function &callback, std::string chartDir)
        : PlainWorker(callback, "isValidChartDirectory"), chartDir(std::move(chartDir)) {}
    void Execute() override;

private:
    std::string chartDir;
};

// One worker for coverageInfo, cycleNumber and cycleNumberDisplay: a size
// query, then a fill call with a buffer of exactly that size.
class StringQueryWorker : public Napi::AsyncWorker {
public:
    using Query = StringQuery;
    StringQueryWorker(const Napi::Function &callback, std::string chartDir, Query query,
                      const char *operation)
        : Napi::AsyncWorker(callback), chartDir(std::move(chartDir)), query(query), failure(operation) {}
    void Execute() override;
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

private:
    std::string chartDir;
    Query query;
    std::string result;
    Failure failure;
};

// The whole text behind one of the text queries (the cycle, the period
// label, the region names), for the package's promise API and tool:
// (undefined, text) or (error, undefined), the error's message
// "Received bad result: \"<code>\"." and its operation that of the query.
class WholeTextWorker : public Napi::AsyncWorker {
public:
    using Reader = int (*)(StringQuery query, const std::string &chartDir, std::string &text);
    WholeTextWorker(const Napi::Function &callback, std::string chartDir, StringQuery query,
                    Reader reader, const char *operation)
        : Napi::AsyncWorker(callback), chartDir(std::move(chartDir)), query(query), reader(reader),
          failure(operation) {}
    void Execute() override;
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

private:
    std::string chartDir;
    StringQuery query;
    Reader reader;
    std::string text;
    Failure failure;
};

#endif
