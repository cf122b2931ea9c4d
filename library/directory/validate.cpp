// Whether a directory holds a complete, consistent set of chart data that no
// pending or interrupted merge has left behind.  Only names and existence are
// looked at; no data file is opened for its contents.
#include "tarntermchart.h"

#include <string.h>

#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/platform.h"

static const char *const kRequiredFiles[] = {
    "charts.ini", "chrtlink.dbf", "country.dbf", "coverages.txt", "coverags.dbf",
    "crcfiles.txt", "ctypes.dbf", "tarnwick.tfl", "tarnwick.tls", "lssdef.tcl",
    "regions.dat", "revision.txt", "sbscrips.dbf", "state.dbf", nullptr};

static const char *const kIfrFiles[] = {"airports.dbf", "charts.bin", "charts.dbf", "notams.dbf",
                                        "notams.dbt"};
static const char *const kVfrFiles[] = {"vfrapts.dbf", "vfrcharts.bin", "vfrchrts.dbf",
                                        "vfrntms.dbf", "vfrntms.dbt"};

// The one message that carries a file name.  Each thread has its own, so
// checks running at once on other threads never overwrite a message its
// caller has yet to copy; it stays valid until the next check on the same
// thread.
static thread_local char errorBuf[128];

static bool ExistsIn(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    return path && FileExists(path.get());
}

static int CountExisting(const char *dir, const char *const (&names)[5])
{
    int count = 0;
    for (const char *name : names) count += ExistsIn(dir, name) ? 1 : 0;
    return count;
}

extern "C" const char *TarnTermChart_IsValidChartDirectory(const char *directory)
{
    for (int i = 0; kRequiredFiles[i]; i++) {
        if (!ExistsIn(directory, kRequiredFiles[i])) {
            snprintf(errorBuf, sizeof errorBuf, "Missing file %s", kRequiredFiles[i]);
            return errorBuf;
        }
    }

    // Both sets are counted before either is judged; each is all or nothing.
    int ifrCount = CountExisting(directory, kIfrFiles);
    int vfrCount = CountExisting(directory, kVfrFiles);
    if (ifrCount != 0 && ifrCount != 5)
        return "Missing one or more of airports.dbf, charts.bin, charts.dbf, notams.dbf, notams.dbt";
    if (vfrCount != 0 && vfrCount != 5)
        return "Missing one or more of vfrapts.dbf, vfrcharts.bin, vfrchrts.dbf, vfrntms.dbf, "
               "vfrntms.dbt";

    std::vector<std::string> names;
    if (!ListDirectory(directory, &names)) return "Can't open chart directory.";

    // Leftovers are not ranked: the first entry the listing yields decides.
    for (const std::string &entry : names) {
        const char *name = entry.c_str();
        if (EndsWithNoCase(name, "_vfrcharts.bin"))
            return "The _vfrcharts.bin file indicates that a merge is needed, or did not "
                   "completely finish.";
        if (EndsWithNoCase(name, "_charts.bin"))
            return "The _charts.bin file indicates that a merge is needed, or did not completely "
                   "finish.";
        if (strstr(name, "NEW.db"))
            return "The \"NEW\" file indicates that a merge did not completely finish.";
    }
    return nullptr;
}
