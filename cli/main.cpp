// The command line: its options, and the command that gets them.
#include "bake.h"
#include "check.h"
#include "commit.h"
#include "edit.h"
#include "ending.h"
#include "eval.h"
#include "explain.h"
#include "farm.h"
#include "inspect.h"
#include "manual.h"
#include "merge.h"
#include "module.h"
#include "nodes.h"
#include "schema.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace velto::cli
{

namespace
{

void AddModules(CLI::App& command, ModuleOptions& options)
{
    command
        .add_option(
            "--module", options.files, "a module to load beside those of the folder modules next to the command")
        ->type_name("FILE")
        ->allow_extra_args(false);
}

void AddLibrary(CLI::App& command, std::vector<std::string>& libraries)
{
    command
        .add_option("--library", libraries,
            "where documents are that go by their names; VELTO_LIBRARY names further directories")
        ->type_name("DIR")
        ->allow_extra_args(false);
}

void AddGraph(CLI::App& command, GraphArguments& arguments)
{
    command.add_option("GRAPH", arguments.file, "the graph document, a JSON file")->required();
    command.add_option("--render-mode", arguments.renderMode, "0 final, 1 and 2 previews")
        ->check(CLI::Range(0, 2))
        ->capture_default_str();
    command.add_option("--search-path", arguments.searchPaths, "where relative file names are looked for")
        ->type_name("DIR")
        ->allow_extra_args(false);
    command
        .add_option("--texture-memory", arguments.textureMemory,
            "what a picture may take; a larger one is shown at the finest level that fits")
        ->type_name("MB")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    command
        .add_option("--memory", arguments.memory,
            "what pictures, rasters, tables and bands may take together; default: three quarters of what there is")
        ->type_name("MB")
        ->check(CLI::Range(1, 1 << 20))
        ->envname("VELTO_MEMORY");
    command.add_flag(
        "--force", arguments.force, "goes on although a sample takes more than 1,000,000,000 evaluations of nodes");
    AddLibrary(command, arguments.libraries);
    command.add_option("--preset", arguments.presets, "gives the parameters a preset's values")
        ->type_name("NAME")
        ->allow_extra_args(false);
    command
        .add_option("--set", arguments.settings,
            "gives an input or a parameter a value, after the presets: NODE.PORT=VALUE or NAME=VALUE, VALUE being JSON "
            "or a word")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command
        .add_option("--files", arguments.files,
            "what a document may read: any file, or those below its directory, the search paths and the libraries; "
            "default any, below for a document from standard input")
        ->check(CLI::IsMember({"any", "below"}));
}

// The options of every command.
void AddCommon(CLI::App& command, Streams& streams)
{
    command.add_flag("--strict", streams.isStrict, "warnings are errors");
    auto* const quiet = command.add_flag("--quiet", streams.isQuiet, "says nothing but errors");
    command.add_flag("--verbose", streams.isVerbose, "says what is read")->excludes(quiet);
    const CLI::Validator notEmpty(
        [](const std::string& text) { return text.empty() ? std::string("expected a value, got an empty text") : ""; },
        "");
    for (CLI::Option* const option : command.get_options())
    {
        if (option->get_items_expected_max() > 0)
            option->check(notEmpty);
    }
}

// Suggests what was meant by a command line that cannot be read.
std::string Meant(const CLI::App& app, int argc, char** argv)
{
    const auto names = [](const CLI::App& command) {
        std::vector<std::string> known;
        for (const CLI::Option* const option : command.get_options())
        {
            for (const std::string& name : option->get_lnames())
                known.push_back("--" + name);
        }
        return known;
    };
    const CLI::App* command = nullptr;
    std::vector<std::string> commands;
    for (const CLI::App* const each : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        commands.push_back(each->get_name());
        if (argc > 1 && each->get_name() == argv[1])
            command = each;
    }
    if (!command && argc > 1 && argv[1][0] != '-')
        return fmt::format("there is no command \"{}\"{}", argv[1], host::Suggestion(argv[1], commands));
    const std::vector<std::string> known = names(command ? *command : app);
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view given = std::string_view(argv[i]).substr(0, std::string_view(argv[i]).find('='));
        if (given.starts_with("--") && given.size() > 2 && std::find(known.begin(), known.end(), given) == known.end())
            return fmt::format("there is no option \"{}\"{}", given, host::Suggestion(given, known));
    }
    return {};
}

// The options that bakes, merges and farms share.
void AddBakeOptions(CLI::App* bake, BakeArguments& a)
{
    AddModules(*bake, a.modules);
    bake->add_option("-o", a.file, "the image file; its suffix is the format (png, jpg, tif, exr, hdr, tga, ...)")
        ->type_name("FILE")
        ->required();
    bake->add_option("--format", a.format, "the format, a suffix, whatever FILE ends in; - as FILE is standard output")
        ->type_name("SUFFIX");
    bake->add_option("--size", a.size, "pixels: N or WxH")->capture_default_str();
    bake->add_option("--output", a.graph.outputs, "an output to bake; default: every one, FILE then holds {output}")
        ->allow_extra_args(false);
    auto* const frame = bake->add_option("--frame", a.frame, "the frame to bake; its time is N / fps");
    bake->add_option("--frames", a.frames, "frames such as 1-24, 1-24x2 or 3,7,20-10; FILE then holds {frame} or ####")
        ->type_name("LIST")
        ->excludes(frame);
    bake->add_option("--fps", a.framesPerSecond, "frames a second")
        ->check(CLI::Validator(
            [](const std::string& text) {
                const double rate = std::strtod(text.c_str(), nullptr);
                return rate >= 1e-6 && rate <= 1e6 ? "" : text + " is not in range [1e-06 - 1e+06]";
            },
            "FLOAT in [1e-06 - 1e+06]"))
        ->capture_default_str();
    bake->add_option("--threads", a.threads, "threads; default: as many cores as the process may use")
        ->check(CLI::Range(1, 1024))
        ->envname("VELTO_THREADS");
    bake->add_option("--supersample", a.supersample, "N x N samples a pixel, each filtered for its share of it")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    bake->add_option("--crop", a.crop, "evaluates and writes only this window of the picture")->type_name("X,Y,WxH");
    bake->add_option("--depth", a.depth,
        "numbers in the file: uint8, uint16, half or float; default as the document says, or by format");
    bake->add_option("--colorspace", a.colorSpace,
        "how files hold colours: srgb or linear; default srgb for colours in 8- and 16-bit files, else linear");
    bake->add_option("--shape", a.shape, "what is baked: plane or sphere")->capture_default_str();
    bake->add_flag("--no-fuse", a.isNotFused, "does not compile the graph: slower in large pictures, of equal bits");
    bake->add_option("--progress", a.progress, "when to show it: auto, always, never, or json: lines of JSON on stderr")
        ->check(CLI::IsMember({"auto", "always", "never", "json"}))
        ->capture_default_str();
}

void AddBake(CLI::App& app, BakeArguments& a)
{
    CLI::App* const bake = app.add_subcommand("bake", "evaluates a graph over the unit square and writes an image");
    AddGraph(*bake, a.graph);
    AddBakeOptions(bake, a);
    bake->add_option("--shard", a.shard, "bakes the K-th of N parts, to FILE with .K-of-N.part.exr for its suffix")
        ->type_name("K/N");
    bake->add_flag(
        "--skip-existing", a.skipExisting, "leaves files that are there, and parts of this very bake, alone");
    bake->add_flag("--watch", a.watches,
            "bakes again whenever the graph, a document that it uses, or a picture that it reads changes; Ctrl-C ends "
            "it")
        ->excludes("--skip-existing");
    bake->add_flag("--stats", a.stats, "times, samples, evaluations and baked rasters as JSON on stderr");
    bake->add_flag("--json", a.json, "files with sizes and hashes of their pixels as JSON on standard output");
}

void AddMerge(CLI::App& app, MergeArguments& a)
{
    CLI::App* const merge = app.add_subcommand("merge", "puts the parts of a bake together");
    AddGraph(*merge, a.bake.graph);
    merge->get_option("GRAPH")->required(false);
    merge->remove_option(merge->get_option("GRAPH"));
    merge->add_option("GRAPH or PARTS", a.files, "the graph, with the options of its parts; or the parts themselves")
        ->required();
    AddBakeOptions(merge, a.bake);
    merge->add_flag("--remove-parts", a.removeParts, "removes the parts once they are merged");
}

void AddFarm(CLI::App& app, FarmArguments& a, BakeArguments& bake)
{
    CLI::App* const farm =
        app.add_subcommand("farm", "hands a bake to a scheduler, in parts; -- ENGINE OPTIONS at the end");
    AddGraph(*farm, bake.graph);
    AddBakeOptions(farm, bake);
    farm->add_option("--shards", a.shards, "how many parts")->check(CLI::Range(1, 100'000))->required();
    farm->add_option("--engine", a.engine, "what runs the parts: slurm, or local: processes of this machine")
        ->capture_default_str();
    farm->add_flag("--wait", a.wait, "shows how far the parts are, and ends as the merge does");
    farm->add_flag("--cancel-on-interrupt", a.cancelOnInterrupt, "an interrupt of --wait cancels the jobs too");
    farm->add_flag("--dry-run", a.dryRun, "prints what would be run");
}

// The graph and the options of its bake as they were typed, without the options of the farm.
void TakeFarmArguments(int argc, char** argv, FarmArguments& a)
{
    for (int i = 2; i < argc; ++i)
    {
        const std::string_view word = argv[i];
        if (word == "--shards" || word == "--engine")
            ++i;
        else if (!word.starts_with("--shards=") && !word.starts_with("--engine=") && word != "--wait" &&
                 word != "--dry-run" && word != "--cancel-on-interrupt")
            a.bakeArguments.emplace_back(word);
    }
}

void AddExplain(CLI::App& app, ExplainArguments& a)
{
    CLI::App* const explain = app.add_subcommand(
        "explain", "tells what a bake costs before it runs: takes its options, and samples for half a second");
    AddGraph(*explain, a.bake.graph);
    a.bake.file = "{output}.png";
    AddBakeOptions(explain, a.bake);
    explain->get_option("-o")->required(false);
    explain->remove_option(explain->get_option("--progress"));
    explain->add_option("--shards", a.shards, "the parts that the bake is split into")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    explain->add_flag("--json", a.json, "JSON");
}

void AddEdit(CLI::App& app, const char* name, const char* help, EditArguments& a)
{
    CLI::App* const edit = app.add_subcommand(name, help);
    AddGraph(*edit, a.graph);
    AddModules(*edit, a.modules);
    edit->add_option("--port", a.port, "the port on the loopback interface; default: one that is free")
        ->check(CLI::Range(1, 65535));
    edit->add_option("--threads", a.threads, "threads; default: as many cores as the process may use")
        ->check(CLI::Range(1, 1024))
        ->envname("VELTO_THREADS");
    edit->add_flag("--no-browser", a.opensNoBrowser, "prints the address, and opens nothing");
}

int Main(int argc, char** argv)
{
    CLI::App app("velto bakes node graphs to textures.", "velto");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("velto " VELTO_VERSION) + kCommit);

    BakeArguments bake;
    AddBake(app, bake);

    MergeArguments merge;
    AddMerge(app, merge);

    FarmArguments farm;
    BakeArguments farmBake;
    AddFarm(app, farm, farmBake);

    ExplainArguments explain;
    AddExplain(app, explain);

    EvalArguments eval;
    CLI::App* const evalCommand = app.add_subcommand("eval", "evaluates a graph at single samples and prints JSON");
    AddGraph(*evalCommand, eval.graph);
    AddModules(*evalCommand, eval.modules);
    evalCommand->add_option("--samples", eval.samples, "the samples, a JSON file, or - for standard input")
        ->type_name("FILE");
    evalCommand->add_option("--pixel", eval.pixel, "the sample of this pixel, as a bake has it; y counts from the top")
        ->type_name("X,Y")
        ->excludes("--samples");
    evalCommand->add_option("--size", eval.size, "of the picture with that pixel: N or WxH")->capture_default_str();
    evalCommand->add_flag("--counts", eval.counts, "how often each node was evaluated");

    NodesArguments nodes;
    CLI::App* const nodesCommand = app.add_subcommand("nodes", "lists the nodes, or describes one");
    nodesCommand->add_option("ID", nodes.words, "the node to describe, a document, or words to look for")
        ->type_name("");
    AddModules(*nodesCommand, nodes.modules);
    AddLibrary(*nodesCommand, nodes.libraries);
    nodesCommand->add_flag("--core", nodes.core, "core nodes instead of described nodes");
    nodesCommand->add_flag("--json", nodes.json, "JSON");

    CheckArguments check;
    CLI::App* const checkCommand = app.add_subcommand("check", "reads and builds a graph and reports every fault");
    AddGraph(*checkCommand, check.graph);
    AddModules(*checkCommand, check.modules);

    InspectArguments inspect;
    CLI::App* const inspectCommand =
        app.add_subcommand("inspect", "prints a graph's root after its set-up: ports, attributes and wires");
    AddGraph(*inspectCommand, inspect.graph);
    AddModules(*inspectCommand, inspect.modules);

    EditArguments edit;
    AddEdit(app, "edit", "opens an editor of a graph in the browser", edit);
    app.get_subcommand("edit")->get_option("GRAPH")->required(false);
    EditArguments view;
    edit.words = view.words = argv;
    view.isView = true;
    AddEdit(app, "view", "shows a graph's picture in the browser, and follows its file", view);

    SchemaArguments schema;
    CLI::App* const schemaCommand =
        app.add_subcommand("schema", "prints a JSON Schema of documents, by which editors complete and check them");
    AddModules(*schemaCommand, schema.modules);
    AddLibrary(*schemaCommand, schema.libraries);

    ModuleArguments module;
    CLI::App* const moduleCommand = app.add_subcommand("module", "tells what the loaded modules publish");
    AddModules(*moduleCommand, module.modules);
    moduleCommand->add_flag("--json", module.json, "JSON");

    std::string shell;
    CLI::App* const completion =
        app.add_subcommand("completion", "prints a script that completes commands and options in a shell");
    completion->add_option("SHELL", shell, "the shell: bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    std::string format = "man";
    CLI::App* const manual = app.add_subcommand("manual", "prints what all commands and options do");
    manual->add_option("--format", format, "of the text: man, for `man -l -`, or markdown")
        ->check(CLI::IsMember({"man", "markdown"}))
        ->capture_default_str();

    std::atomic<std::size_t> warnings = 0;
    Streams streams{std::cout, std::cerr, isatty(STDERR_FILENO) != 0};
    streams.warnings = &warnings;
    std::vector<std::string> warningTexts;
    streams.warningTexts = &warningTexts;
    double timeLimit = 0.0;
    for (CLI::App* const each : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        AddCommon(*each, streams);
        each->add_option("--time-limit", timeLimit, "ends the command with status 1 after this time")
            ->type_name("SECONDS")
            ->check(CLI::Range(1e-3, 1e9));
    }
    const HostOutput output(streams);
    try
    {
        // The words after -- are options of the farm's engine.
        const auto isFarm = argc > 1 && std::string_view(argv[1]) == "farm";
        char** const dashes = isFarm ? std::find(argv, argv + argc, std::string_view("--")) : argv + argc;
        farm.engineOptions.assign(std::min(dashes + 1, argv + argc), argv + argc);
        argc = static_cast<int>(dashes - argv);
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& failure)
    {
        if (failure.get_exit_code() == 0)
            return app.exit(failure); // help and version
        const std::string meant = Meant(app, argc, argv);
        PrintError(streams, meant.empty() ? failure.what() : meant);
        return kWrongInput;
    }

    EndBySignals();
    if (timeLimit > 0.0)
        EndAfter(timeLimit);
    const CLI::App* const command = app.get_subcommands().front();
    int status = kFailed;
    if (command->get_name() == "bake")
        status = Bake(bake, streams);
    else if (command->get_name() == "merge")
        status = Merge(merge, streams);
    else if (command->get_name() == "farm")
    {
        TakeFarmArguments(argc, argv, farm);
        farm.file = farmBake.file;
        status = Farm(farm, streams);
    }
    else if (command->get_name() == "explain")
        status = Explain(explain, streams);
    else if (command == evalCommand)
        status = Eval(eval, streams);
    else if (command == nodesCommand)
        status = Nodes(nodes, streams);
    else if (command == checkCommand)
        status = Check(check, streams);
    else if (command->get_name() == "edit")
        status = Edit(edit, streams); // in `velto`, this goes to `velto-edit`
    else if (command->get_name() == "view")
        status = Edit(view, streams);
    else if (command == completion || command == manual)
    {
        std::cout << (command == completion ? Completion(app, shell)
                      : format == "man"     ? ManualPage(app, VELTO_VERSION)
                                            : ManualMarkdown(app));
        status = kSuccess;
    }
    else if (command == inspectCommand)
        status = Inspect(inspect, streams);
    else if (command == schemaCommand)
        status = Schema(schema, streams);
    else if (command == moduleCommand)
        status = Module(module, streams);
    if (status == kSuccess && streams.isStrict && warnings > 0)
        status = kFailed;
    std::cout.flush();
    if (!std::cout && status == kSuccess)
    {
        PrintError(streams, "the result cannot be written to standard output");
        return kFailed;
    }
    return status;
}

} // namespace

} // namespace velto::cli

int main(int argc, char** argv)
{
    velto::cli::EndWithoutAbort();
    return velto::cli::Main(argc, argv);
}
