// How much memory a process holds.
#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

inline long ResidentKilobytes(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (status >> word && word != "VmRSS:") {
    }
    long kilobytes = 0;
    status >> kilobytes;
    return kilobytes;
}
