#include "tree/CommandLine.h"

#include "cli/Parse.h"

namespace tree {

namespace {

constexpr const char* kFooter = R"(
The device is found by --socket, else by --state-dir, else by the state directory in
$VESK_STATE_DIR, else by a control socket in ./, ./state/ or a directory below ./state/.

Examples:
  vesk-tree list dirac/                        the nodes whose path begins so
  vesk-tree get --json dirac/slots             a value, whole, as JSON
  vesk-tree set dirac/activeFilter off         a choice by its title
  vesk-tree set dirac/activeFilter 0           or by its value
  vesk-tree watch dirac/ player/               changes, a line of JSON each
  vesk-tree invoke dirac/forceReloadFilter     run an action

Exit codes: 0 done, 1 refused or failed, 2 wrong usage, 3 no device within reach.)";

class Parser {
public:
    Parser() {
        app_.footer(kFooter);
        app_.set_version_flag("--version", "vesk-tree " VESK_VERSION);
        CLI::Option* const socket =
            app_.add_option("--socket", command_.socket, "Control socket of the device")
                ->type_name("PATH");
        app_.add_option("--state-dir", command_.stateDirectory, "State directory of the device")
            ->type_name("PATH")
            ->excludes(socket);
        app_.fallthrough();
        app_.require_subcommand(1);
        addList();
        addGet();
        addSet();
        addWatch();
        addInvoke();
    }

    ParsedCommandLine parse(int argc, const char* const* argv) {
        if (const auto exitCode = cli::parse(app_, argc, argv))
            return {std::nullopt, *exitCode};
        return {command_, 0};
    }

private:
    CLI::App* addVerb(Command::Verb verb, const char* name, const char* description) {
        CLI::App* const app = app_.add_subcommand(name, description);
        app->callback([this, verb] { command_.verb = verb; });
        return app;
    }

    CLI::Option* addText(CLI::App* verb, const char* name, std::string& text,
                         const char* description) {
        return verb->add_option(name, text, description)->type_name("");
    }

    void addList() {
        CLI::App* const verb = addVerb(Command::Verb::List, "list", "Show the nodes of the tree");
        addText(verb, "PREFIX", command_.path, "Only nodes whose path begins so");
        verb->add_flag("--json", command_.json, "Print JSON");
    }

    void addGet() {
        CLI::App* const verb = addVerb(Command::Verb::Get, "get", "Print a node's value");
        addText(verb, "PATH", command_.path, "The node")->required();
        verb->add_flag("--json", command_.json, "Print JSON");
    }

    void addSet() {
        CLI::App* const verb = addVerb(Command::Verb::Set, "set", "Change a node's value");
        addText(verb, "PATH", command_.path, "The node")->required();
        addText(verb, "VALUE", command_.value,
                "JSON of the node's type, a plain text for a string, or the title of a choice")
            ->required();
        addText(verb, "--type", command_.type,
                "bool, i32, double, string, doubleList, diracConfig, diracSlotsList or record: "
                "needed where the node has no value yet and VALUE does not tell");
    }

    void addWatch() {
        CLI::App* const verb = addVerb(Command::Verb::Watch, "watch",
                                       "Print a line of JSON for each change, until interrupted");
        verb->add_option("PREFIX", command_.prefixes, "Only nodes whose path begins so")
            ->type_name("");
        verb->add_flag("--present", command_.present, "Print the present values first");
        verb->add_option("--count", command_.changes, "End after so many lines")
            ->check(CLI::PositiveNumber)
            ->type_name("N");
    }

    void addInvoke() {
        CLI::App* const verb =
            addVerb(Command::Verb::Invoke, "invoke", "Run an action and print its answer as JSON");
        addText(verb, "PATH", command_.path, "The action")->required();
        addText(verb, "JSON", command_.value, "Its arguments, an object");
    }

    CLI::App app_{"Shows and changes the configuration tree of a running device.", "vesk-tree"};
    Command command_;
};

}  // namespace

ParsedCommandLine parseCommandLine(int argc, const char* const* argv) {
    return Parser().parse(argc, argv);
}

}  // namespace tree
