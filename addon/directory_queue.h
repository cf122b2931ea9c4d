// Calls that write a chart directory (merge, subset, combine) never run at
// the same time as another call that writes a directory they use or reads
// one they write.  A call that would is held here, on the JavaScript
// thread, and queued to the runtime's pool only once the calls it waits for
// are done, so that waiting ties up none of the pool's threads.  Calls are
// started in the order they were made wherever they touch the same
// directory.  (The library itself also locks each directory, which makes
// calls from other processes, and from other JavaScript environments, wait
// as well.)
#ifndef TARNTERMCHART_DIRECTORY_QUEUE_H
#define TARNTERMCHART_DIRECTORY_QUEUE_H

#include <napi.h>

#include <string>
#include <vector>

// A directory a call uses, and whether it writes there.
struct DirectoryClaim {
    std::string directory;
    bool writes;
};

// Queues worker to the pool now, or once every earlier call it conflicts
// with is done.  The worker must call DirectoryCallDone from its destructor.
void QueueForDirectories(Napi::Env env, Napi::AsyncWorker *worker, const std::vector<DirectoryClaim> &claims);
// The worker's call is over: calls that waited for it may start.
void DirectoryCallDone(Napi::Env env, Napi::AsyncWorker *worker);

#endif
