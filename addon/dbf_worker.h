// The worker of dumpDbf: writes a table's text dump on the worker thread.
#ifndef TARNTERMCHART_DBF_WORKER_H
#define TARNTERMCHART_DBF_WORKER_H

#include "worker_util.h"

class DumpDbfWorker : public PlainWorker {
public:
    DumpDbfWorker(const Napi::Function &callback, std::string dbfPath, std::string outputPath)
        : PlainWorker(callback, "dumpDbf"), dbfPath(std::move(dbfPath)), outputPath(std::move(outputPath)) {}
    void Execute() override;

private:
    std::string dbfPath;
    std::string outputPath;
};

#endif
