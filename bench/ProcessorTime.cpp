#include "bench/ProcessorTime.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>

namespace QuorvelBench {

namespace {

double ProcessorSeconds(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string skipped;
    for (int i = 0; i < 11; ++i) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace

double ShareOfProcessor(pid_t process, const std::function<void()>& act) {
    const double before = ProcessorSeconds(process);
    const auto start = std::chrono::steady_clock::now();
    act();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    return (ProcessorSeconds(process) - before) / passed.count();
}

} // namespace QuorvelBench
