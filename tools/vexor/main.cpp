// The `vexor` program: answers --help and --version and hands everything else to the
// subcommands listed in commands.h.
#include <cstdio>
#include <cstring>

#include <vexor/version.h>

#include "bounds.h"
#include "commands.h"

namespace {

bool is_help_flag(const char *arg) {
    return std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0;
}

const Subcommand *find_subcommand(const char *name) {
    for (const Subcommand &command : kSubcommands) {
        if (std::strcmp(command.name, name) == 0) return &command;
    }
    return nullptr;
}

void print_usage(std::FILE *out) {
    std::fputs(
        "usage: vexor <command> [options]\n"
        "       vexor help <command>\n"
        "       vexor --help | --version\n"
        "\n"
        "commands:\n",
        out);
    int width = 0;
    for (const Subcommand &command : kSubcommands) {
        const int length = static_cast<int>(std::strlen(command.name));
        if (length > width) width = length;
    }
    for (const Subcommand &command : kSubcommands) {
        std::fprintf(out, "  %-*s  %s\n", width, command.name, command.summary);
    }
    std::fputs("\nRun 'vexor help <command>' for the options of a command.\n", out);
}

int unknown_command(const char *name) {
    std::fprintf(stderr,
                 "vexor: unknown command '%s'\n"
                 "Run 'vexor --help' for the list of commands.\n",
                 name);
    return kExitUsage;
}

// --help or -h among a subcommand's arguments, before any "--" that ends the options.
bool asks_for_help(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) return false;
        if (is_help_flag(argv[i])) return true;
    }
    return false;
}

int dispatch(int argc, char **argv) {
    if (argc < 2) {
        print_usage(stderr);
        return kExitUsage;
    }
    const char *first = argv[1];
    if (is_help_flag(first)) {
        print_usage(stdout);
        return 0;
    }
    if (std::strcmp(first, "--version") == 0) {
        std::printf("vexor %s\n", VxVersion());
        return 0;
    }
    if (std::strcmp(first, "help") == 0) {
        if (argc == 2) {
            print_usage(stdout);
            return 0;
        }
        if (argc > 3) {
            std::fputs("vexor: 'help' takes one command name\n", stderr);
            return kExitUsage;
        }
        const Subcommand *command = find_subcommand(argv[2]);
        if (command == nullptr) return unknown_command(argv[2]);
        std::fputs(command->help, stdout);
        return 0;
    }
    if (first[0] == '-') {
        std::fprintf(stderr,
                     "vexor: unknown option '%s'\n"
                     "Run 'vexor --help' for usage.\n",
                     first);
        return kExitUsage;
    }
    const Subcommand *command = find_subcommand(first);
    if (command == nullptr) return unknown_command(first);
    if (asks_for_help(argc - 1, argv + 1)) {
        std::fputs(command->help, stdout);
        return 0;
    }
    // The library's log lines reach the user in the program's words, never raw.
    const LibraryMessages messages(command->name);
    return command->run(argc - 1, argv + 1);
}

}  // namespace

int main(int argc, char **argv) {
    const int status = dispatch(argc, argv);
    // Output that never arrived (a full disk, a closed pipe) is a failure too.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("vexor: writing the output");
        return status != 0 ? status : 1;
    }
    return status;
}
