#include "tests/support/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace QuorvelTest {

namespace {

std::filesystem::path MakeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "quorvel-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    return name;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Program::Program(const std::vector<std::string>& arguments, const std::string& input,
                 const std::vector<std::string>& environment)
    : mFolder(MakeFolder()) {
    std::ofstream(mFolder / "in", std::ios::binary) << input;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, (mFolder / "in").c_str(), O_RDONLY, 0);
    constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, (mFolder / "out").c_str(), kWrite,
                                     0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, (mFolder / "err").c_str(), kWrite,
                                     0600);

    std::vector<std::string> argumentTexts = arguments;
    std::vector<char*> argumentPointers = Pointers(argumentTexts);
    // The first of two values counts for getenv, so the additions come first.
    std::vector<std::string> environmentTexts = environment;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        environmentTexts.emplace_back(*variable);
    }
    std::vector<char*> environmentPointers = Pointers(environmentTexts);
    const int error = ::posix_spawn(&mProcess, arguments.at(0).c_str(), &files, nullptr,
                                    argumentPointers.data(), environmentPointers.data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        std::filesystem::remove_all(mFolder);
        throw std::runtime_error("cannot start " + arguments[0]);
    }
}

Program::~Program() {
    if (mProcess > 0) {
        ::kill(mProcess, SIGKILL);
        ::waitpid(mProcess, nullptr, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

void Program::Signal(int number) const {
    ::kill(mProcess, number);
}

std::string Program::OutputSoFar() const {
    return ContentOf(mFolder / "out");
}

std::string Program::ErrorSoFar() const {
    return ContentOf(mFolder / "err");
}

ProgramResult Program::Wait() {
    int status = 0;
    struct rusage usage {};
    ::wait4(mProcess, &status, 0, &usage);
    mProcess = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            ContentOf(mFolder / "out"), ContentOf(mFolder / "err"), usage.ru_maxrss};
}

ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input,
                         const std::vector<std::string>& environment) {
    return Program(arguments, input, environment).Wait();
}

TemporaryFolder::TemporaryFolder() : mPath(MakeFolder()) {}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string TemporaryFolder::Write(const std::string& name, std::string_view content) const {
    std::filesystem::create_directories((mPath / name).parent_path());
    std::ofstream(mPath / name, std::ios::binary) << content;
    return (mPath / name).string();
}

std::string ContentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace QuorvelTest
