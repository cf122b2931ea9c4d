// Worker of the area subset.
#ifndef TARNTERMCHART_SUBSET_WORKER_H
#define TARNTERMCHART_SUBSET_WORKER_H

#include "directory_queue.h"
#include "worker_util.h"

// Calls TarnwickAPI_SubsetCharts with the box's four numbers as doubles,
// in the order JavaScript gave them.
class SubsetChartsWorker : public PlainWorker {
public:
    SubsetChartsWorker(const Napi::Function &callback, std::string sourceDirectory,
                       std::string destinationDirectory, double north, double west, double south,
                       double east)
        : PlainWorker(callback, "subsetCharts"), sourceDirectory(std::move(sourceDirectory)),
          destinationDirectory(std::move(destinationDirectory)), north(north), west(west),
          south(south), east(east) {}
    ~SubsetChartsWorker() override { DirectoryCallDone(Env(), this); }
    void Execute() override;

private:
    std::string sourceDirectory;
    std::string destinationDirectory;
    double north;
    double west;
    double south;
    double east;
};

#endif
