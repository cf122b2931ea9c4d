#include "bundle_workers.h"

#include "tarntermchart.h"

void DumpChartsBinWorker::Execute()
{
    Judge(TarnwickAPI_DumpChartsBin(chartsBinPath.c_str(), outputPath.c_str(), option1, option2));
}
