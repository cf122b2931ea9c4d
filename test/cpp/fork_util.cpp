#include "fork_util.h"

#include <signal.h>
#include <stdlib.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

int RunInChild(const std::function<int()> &body)
{
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) return kChildDied;
    if (pid == 0) _exit(body() & 0xFF);
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return kChildDied;
    return (int)(signed char)WEXITSTATUS(status);
}

void DropPrivileges()
{
    if (geteuid() != 0) return;
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(125);
}

void LimitFileSize(uint64_t maxBytes)
{
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {(rlim_t)maxBytes, (rlim_t)maxBytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

void LimitAddressSpace(uint64_t headroomBytes)
{
    unsigned long long pages = 0;
    if (FILE *statm = fopen("/proc/self/statm", "r")) {
        if (fscanf(statm, "%llu", &pages) != 1) pages = 0;
        fclose(statm);
    }
    rlim_t bytes = (rlim_t)(pages * (unsigned long long)sysconf(_SC_PAGESIZE) + headroomBytes);
    struct rlimit limit = {bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
}

void ExhaustMemory(uint64_t keepBytes)
{
    const size_t piece = 64u << 10;
    std::vector<void *> taken;
    while (void *p = malloc(piece)) taken.push_back(p);
    // Give back every other piece, so that no two freed pieces merge.
    for (size_t i = 0; i < taken.size() && keepBytes >= piece; i += 2, keepBytes -= piece) free(taken[i]);
}
