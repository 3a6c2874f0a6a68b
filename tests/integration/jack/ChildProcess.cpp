#include "tests/integration/jack/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace JackTest {

ChildProcess::ChildProcess(std::vector<std::string> arguments, const std::string& outputFile,
                           const Environment& environment) {
    std::array<int, 2> input{};
    std::array<int, 2> output{};
    if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    std::signal(SIGPIPE, SIG_IGN); // ReadLine tells of a program that has ended
    const pid_t parent = getpid();
    mProcess = fork();
    if (mProcess == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(126);
        }
        dup2(input[0], STDIN_FILENO);
        if (outputFile.empty()) {
            dup2(output[1], STDOUT_FILENO);
        } else {
            const int file = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            dup2(file, STDOUT_FILENO);
            dup2(file, STDERR_FILENO);
        }
        for (const auto& [name, value] : environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    mInput = input[1];
    mOutput = output[0];
    if (mProcess < 0) {
        throw std::runtime_error("no process");
    }
    setpgid(mProcess, mProcess);
}

ChildProcess::~ChildProcess() {
    End();
    close(mOutput);
}

void ChildProcess::End() {
    if (mInput >= 0) {
        close(mInput);
        mInput = -1;
    }
    if (mProcess > 0 && !HasEndedSoon()) {
        Signal();
        if (!HasEndedSoon()) {
            Kill();
        }
    }
}

void ChildProcess::Signal() const {
    if (mProcess > 0) {
        kill(-mProcess, SIGTERM);
    }
}

bool ChildProcess::HasEnded() {
    const pid_t group = mProcess;
    if (mProcess > 0 && waitpid(mProcess, nullptr, WNOHANG) == mProcess) {
        mProcess = -1;
        kill(-group, SIGKILL); // what it has started
    }
    return mProcess < 0;
}

bool ChildProcess::HasEndedSoon() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
        if (HasEnded()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

void ChildProcess::Kill() {
    if (mProcess > 0) {
        kill(-mProcess, SIGKILL);
        waitpid(mProcess, nullptr, 0);
        mProcess = -1;
    }
}

void ChildProcess::WriteLine(const std::string& line) const {
    const std::string text = line + "\n";
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(mInput, text.data() + written, text.size() - written);
        if (count <= 0) {
            return; // the program has ended, which ReadLine tells
        }
        written += static_cast<std::size_t>(count);
    }
}

bool ChildProcess::ReadLine(std::string& line) {
    for (;;) {
        if (const std::size_t end = mRead.find('\n'); end != std::string::npos) {
            line = mRead.substr(0, end);
            mRead.erase(0, end + 1);
            return true;
        }
        std::array<char, 65536> bytes{};
        const ssize_t count = read(mOutput, bytes.data(), bytes.size());
        if (count <= 0) {
            return false;
        }
        mRead.append(bytes.data(), static_cast<std::size_t>(count));
    }
}

} // namespace JackTest
