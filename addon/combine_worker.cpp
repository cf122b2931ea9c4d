#include "combine_worker.h"

#include "tarntermchart.h"

void CombineVfrIntoIfrWorker::Execute()
{
    Judge(TarnwickAPI_CombineVFRintoIFR(sourceDirectory.c_str(), destinationDirectory.c_str()));
}
