// The subcommands of the `vexor` program.
//
// A subcommand is a handler in a file of its own (tools/vexor/<name>.cpp) and one row in
// kSubcommands below; main.cpp does the dispatching, `vexor --help`, `vexor help <name>` and
// `vexor <name> --help`, so handlers never see --help. Handlers use the library only through
// its public C headers.
#pragma once

// A handler gets the subcommand's own arguments: argv[0] is the subcommand's name and
// argv[argc] is null. It returns the program's exit code: 0 done, 1 the work failed, 2 the
// arguments were wrong (with a message on stderr).
using SubcommandHandler = int (*)(int argc, char **argv);

struct Subcommand {
    const char *name;     // as typed: `vexor <name> ...`
    const char *summary;  // one line, shown by `vexor --help`
    SubcommandHandler run;
    const char *help;  // the full help, ending in a newline
};

int vexor_demo(int argc, char **argv);

// In the order `vexor --help` lists them.
inline constexpr Subcommand kSubcommands[] = {
    {"demo", "edit a small document with undo and redo, and show what observers hear", vexor_demo,
     "usage: vexor demo\n"
     "\n"
     "Edits a small document of named values through the undo system, walks the\n"
     "history back and forth, and prints the document and what observers attached\n"
     "to its port hear at each step.\n"},
};
