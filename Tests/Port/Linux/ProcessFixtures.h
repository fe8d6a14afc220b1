#pragma once

// What Linux 6.18 showed of some processes; of status only the beginning, up to the line that the
// last of the parsed fields stands in.

namespace ombrix::tests {

// A process that has named itself "a) R 1", a newline, a backslash, "b c".
inline constexpr const char* oddlyNamedStatus =
    "Name:\ta) R 1\\n\\\\b c\n"
    "Umask:\t0022\n"
    "State:\tS (sleeping)\n"
    "Tgid:\t15112\n"
    "Ngid:\t0\n"
    "Pid:\t15112\n"
    "PPid:\t15104\n"
    "TracerPid:\t0\n"
    "Uid:\t1000\t1000\t1000\t1000\n"
    "Gid:\t1000\t1000\t1000\t1000\n"
    "FDSize:\t256\n"
    "Groups:\t \n"
    "NStgid:\t15112\n"
    "NSpid:\t15112\n"
    "NSpgid:\t15104\n"
    "NSsid:\t3545\n"
    "Kthread:\t0\n"
    "VmPeak:\t    2388 kB\n"
    "VmSize:\t    2344 kB\n";
inline constexpr const char* oddlyNamedStat =
    "15112 (a) R 1\n\\b c) S 15104 15104 3545 0 -1 4194560 232 0 4 0 0 0 0 0 20 0 1 0 375797 "
    "2400256 365 18446744073709551615 94657996132352 94657996132945 140722349165440 0 0 0 65536 6 "
    "0 1 0 0 17 1 0 0 0 0 0 94657996144080 94657996144712 94658156883968 140722349173395 "
    "140722349173399 140722349173399 140722349174772 0\n";

// Its child, dead and not buried.
inline constexpr const char* zombieStatus =
    "Name:\ta) R 1\\n\\\\b c\n"
    "State:\tZ (zombie)\n"
    "Tgid:\t15119\n"
    "Ngid:\t0\n"
    "Pid:\t15119\n"
    "PPid:\t15112\n"
    "TracerPid:\t0\n"
    "Uid:\t1000\t1000\t1000\t1000\n"
    "Gid:\t1000\t1000\t1000\t1000\n"
    "FDSize:\t0\n"
    "Groups:\t \n"
    "NStgid:\t15119\n"
    "NSpid:\t15119\n"
    "NSpgid:\t15104\n"
    "NSsid:\t3545\n"
    "Kthread:\t0\n"
    "Threads:\t1\n";
inline constexpr const char* zombieStat =
    "15119 (a) R 1\n\\b c) Z 15112 15104 3545 0 -1 4227148 17 0 0 0 0 0 0 0 20 0 1 0 375798 0 0 "
    "18446744073709551615 0 0 0 0 0 0 0 0 0 1 0 0 17 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";

// The kernel's first thread of its own.
inline constexpr const char* kernelThreadStatus =
    "Name:\tkthreadd\n"
    "Umask:\t0022\n"
    "State:\tS (sleeping)\n"
    "Tgid:\t2\n"
    "Ngid:\t0\n"
    "Pid:\t2\n"
    "PPid:\t0\n"
    "TracerPid:\t0\n"
    "Uid:\t0\t0\t0\t0\n"
    "Gid:\t0\t0\t0\t0\n"
    "FDSize:\t64\n"
    "Groups:\t \n"
    "NStgid:\t2\n"
    "NSpid:\t2\n"
    "NSpgid:\t0\n"
    "NSsid:\t0\n"
    "Kthread:\t1\n"
    "Threads:\t1\n";
inline constexpr const char* kernelThreadStat =
    "2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 1 0 0 20 0 1 0 22 0 0 18446744073709551615 0 0 0 "
    "0 0 0 0 2147483647 0 1 0 0 0 1 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
// One that works for others, and rests.
inline constexpr const char* kernelWorkerStat =
    "4 (kworker/R-rcu_gp) I 2 0 0 0 -1 69238880 0 0 0 0 0 0 0 0 0 -20 1 0 22 0 0 "
    "18446744073709551615 0 0 0 0 0 0 0 2147483647 0 1 0 0 17 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";

}  // namespace ombrix::tests
