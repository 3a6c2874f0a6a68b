#include "midiserver/commands/ProgramMain.h"

#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/errors/NoThreadText.h"
#include "runtime/thread/NyInit.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace MidiServer {

namespace {

constexpr int kExitBadInput = 2;
constexpr int kExitServiceState = 3;

// Opens a standard stream that is closed, so that no file that is opened later takes its number and
// receives what is meant for the stream. Reads and writes of the replacement fail as those of a
// closed stream do.
void OccupyClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) == -1 && errno == EBADF) {
            // The lowest free number, which is the stream's own.
            ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

int Fail(const char* name, const std::string& why, int status) {
    ErrorOutput::Write(fmt::format("{}: {}\n", name, OneLine(why)));
    return status;
}

// Refuses empty values. Nobody means one, and it must not count as if the option had not been
// given.
void RefuseEmptyValues(CLI::App& command) {
    for (CLI::Option* option : command.get_options()) {
        if (option->get_expected_min() > 0) {
            // As a transformation, although it changes nothing, it comes before the other checks.
            option->transform(CLI::Validator(
                [](const std::string& value) {
                    return value.empty() ? std::string("its value is empty") : std::string();
                },
                std::string()));
        }
    }
    for (CLI::App* subcommand : command.get_subcommands({})) {
        RefuseEmptyValues(*subcommand);
    }
}

// The parser takes the argument that follows "--option=" for the option's value.
void RefuseMissingValues(int argumentCount, char** arguments) {
    for (int i = 1; i < argumentCount && std::string_view(arguments[i]) != "--"; ++i) {
        const std::string_view argument(arguments[i]);
        if (argument.starts_with("--") && argument.find('=') == argument.size() - 1) {
            throw InputError(
                fmt::format("{}: its value is empty", argument.substr(0, argument.size() - 1)));
        }
    }
}

// Prints what the parser says and, if the command is missing or unknown, the commands that exist.
std::string ExplainParseError(const CLI::ParseError& error, CLI::App& program) {
    CLI::App* command = &program;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
    }
    std::string commands;
    for (const CLI::App* each : command->get_subcommands({})) {
        commands += (commands.empty() ? "" : ", ") + each->get_name();
    }
    if (commands.empty()) {
        return error.what();
    }
    const std::vector<std::string> unknown = command->remaining();
    return fmt::format("{}; the commands of {} are: {}",
                       unknown.empty() ? std::string("a command is missing")
                                       : unknown.front() + " is not known here",
                       command->get_name(), commands);
}

std::string Explain(const std::exception& error) {
    const auto* const system = dynamic_cast<const std::system_error*>(&error);
    const bool noThread =
        system != nullptr && system->code() == std::errc::resource_unavailable_try_again;
    return noThread ? NoThreadText(error.what()) : error.what();
}

int Run(const char* name, CommandLineProgram& program, int argumentCount, char** arguments) {
    CLI::App& parser = program.Parser();
    RefuseEmptyValues(parser);
    try {
        RefuseMissingValues(argumentCount, arguments);
        parser.parse(argumentCount, arguments);
        return program.Run();
    } catch (const CLI::Success& help) { // --help and --version
        std::ostringstream text;
        parser.exit(help, text, text);
        fmt::print("{}", text.str());
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError& error) {
        return Fail(name, ExplainParseError(error, parser), kExitBadInput);
    } catch (const InputError& error) {
        return Fail(name, error.what(), kExitBadInput);
    } catch (const ServiceStateError& error) {
        return Fail(name, error.what(), kExitServiceState);
    }
}

int RunReportingErrors(const char* name, std::unique_ptr<CommandLineProgram> (*make)(),
                       int argumentCount, char** arguments) {
    try {
        const std::unique_ptr<CommandLineProgram> program = make();
        return Run(name, *program, argumentCount, arguments);
    } catch (const std::bad_alloc&) {
        // No text is made, which would need memory again.
        ErrorOutput::Write(name);
        ErrorOutput::Write(": out of memory\n");
    } catch (const std::exception& error) {
        // What could not be printed is told once, at the end.
        if (std::ferror(stdout) == 0) {
            Fail(name, Explain(error), EXIT_FAILURE);
        }
    }
    return EXIT_FAILURE;
}

} // namespace

int ProgramMain(const char* name, std::unique_ptr<CommandLineProgram> (*make)(), int argumentCount,
                char** arguments) {
    OccupyClosedStreams();
    NyInit();
    const int status = RunReportingErrors(name, make, argumentCount, arguments);
    // Output that could not be written, for instance to a full disk, must not pass for success.
    const bool printed = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (!printed) {
        Fail(name, "standard output cannot be written", EXIT_FAILURE);
    }
    return printed && !ErrorOutput::HasFailed() ? status : EXIT_FAILURE;
}

} // namespace MidiServer
