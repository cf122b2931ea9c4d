// One library call in a process of its own, for the fault sweeps
// (test/faults/sweep.js): a tracer kills it at a chosen system call, a
// full disk cuts its writes, and its exit status carries the code.
//
//   tarntermchart_fault_driver merge DIR
//   tarntermchart_fault_driver subset SOURCE DESTINATION NORTH WEST SOUTH EAST
//   tarntermchart_fault_driver combine SOURCE DESTINATION
//
// Prints the call's result and exits with its negation (0 for success).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarntermchart.h"

int main(int argc, char **argv)
{
    int result = 1000;
    if (argc == 3 && strcmp(argv[1], "merge") == 0) {
        result = TarnTermChart_Merge(argv[2], nullptr, nullptr);
    } else if (argc == 8 && strcmp(argv[1], "subset") == 0) {
        result = TarnTermChart_SubsetCharts(argv[2], argv[3], atof(argv[4]), atof(argv[5]), atof(argv[6]),
                                            atof(argv[7]));
    } else if (argc == 4 && strcmp(argv[1], "combine") == 0) {
        result = TarnTermChart_CombineVFRintoIFR(argv[2], argv[3]);
    } else {
        fprintf(stderr, "usage: %s merge DIR | subset SRC DST N W S E | combine SRC DST\n", argv[0]);
        return 125;
    }
    printf("%d\n", result);
    return -result & 0xFF;
}
