// The merge worker: runs the merge on a pool thread and relays each
// percentage the library reports to the JavaScript callback.
#ifndef TARNTERMCHART_MERGE_WORKER_H
#define TARNTERMCHART_MERGE_WORKER_H

#include <string>

#include "directory_queue.h"
#include "worker_util.h"

class MergeWorker : public Napi::AsyncProgressWorker<int> {
public:
    MergeWorker(std::string chartDir, const Napi::Function &callback)
        : Napi::AsyncProgressWorker<int>(callback), chartDir(std::move(chartDir)), failure("merge") {}
    // The call is over: calls waiting for its directory may start.
    ~MergeWorker() override { DirectoryCallDone(Env(), this); }

    void Execute(const ExecutionProgress &progress) override;
    void OnProgress(const int *data, size_t count) override;
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

private:
    std::string chartDir;
    // The context handed to the library: a cell that reaches this worker's
    // progress sender, alive only while the library call runs.
    const ExecutionProgress **progressCell = nullptr;
    Failure failure;
};

#endif
