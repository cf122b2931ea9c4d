// The worker of combineVFRinfoIFR: writes the combined chart directory on
// the worker thread.
#ifndef TARNTERMCHART_COMBINE_WORKER_H
#define TARNTERMCHART_COMBINE_WORKER_H

#include "directory_queue.h"
#include "worker_util.h"

class CombineVfrIntoIfrWorker : public PlainWorker {
public:
    CombineVfrIntoIfrWorker(const Napi::Function &callback, std::string sourceDirectory,
                            std::string destinationDirectory)
        : PlainWorker(callback, "combineVFRinfoIFR"), sourceDirectory(std::move(sourceDirectory)),
          destinationDirectory(std::move(destinationDirectory)) {}
    ~CombineVfrIntoIfrWorker() override { DirectoryCallDone(Env(), this); }
    void Execute() override;

private:
    std::string sourceDirectory;
    std::string destinationDirectory;
};

#endif
