#include "subset_worker.h"

#include "tarntermchart.h"

void SubsetChartsWorker::Execute()
{
    Judge(TarnwickAPI_SubsetCharts(sourceDirectory.c_str(), destinationDirectory.c_str(), north,
                                   west, south, east));
}
