// Worker of the chart bundle dump.
#ifndef TARNTERMCHART_BUNDLE_WORKERS_H
#define TARNTERMCHART_BUNDLE_WORKERS_H

#include <stdint.h>

#include "worker_util.h"

// Calls TarnwickAPI_DumpChartsBin.  The library returns the bundle's file
// count on success, and only 0 counts as success here: a non-empty bundle is
// listed in full and then reported as "Received bad result: \"<count>\".".
class DumpChartsBinWorker : public PlainWorker {
public:
    DumpChartsBinWorker(const Napi::Function &callback, std::string chartsBinPath,
                        std::string outputPath, int32_t option1, int32_t option2)
        : PlainWorker(callback, "dumpChartsBin"), chartsBinPath(std::move(chartsBinPath)),
          outputPath(std::move(outputPath)), option1(option1), option2(option2) {}
    void Execute() override;

private:
    std::string chartsBinPath;
    std::string outputPath;
    int32_t option1;
    int32_t option2;
};

#endif
