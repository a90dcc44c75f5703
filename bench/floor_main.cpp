// velm_floor TASK FOLDER OUTPUT: the floor of one task (T1, T2, T3) with the photographs in FOLDER.
#include "Tasks.h"

#include <cstdio>
#include <string>

int main(int count, char** arguments) {
    if (count != 4) {
        std::fprintf(stderr, "usage: velm_floor T1|T2|T3 FOLDER OUTPUT\n");
        return 2;
    }
    const bench::Photographs photographs = bench::photographsIn(arguments[2]);
    for (const bench::Task& task : bench::tasksWith(photographs))
        if (task.name == arguments[1]) return bench::renderFloor(task.floor, arguments[3]) ? 0 : 1;
    return 2;
}
