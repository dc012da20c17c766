// The command as users run it: exit statuses, what goes where.
#include "test/support/eval.h"
#include "test/support/files.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <paths.h>

namespace velto::test
{

namespace
{

using host::Json;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Ran
{
    int status = -1;
    std::string out;
    std::string err;
};

class CommandTest : public ::testing::Test
{
protected:
    CommandTest()
    {
        Write(
            "good.json", R"({"version": 1, "nodes": {"n": {"type": "contrast", "inputs": {"color": [0.25, 0.5, 1, 1]}}},
            "outputs": {"color": "n.result"}})");
        Write("failing.json",
            R"({"version": 1, "nodes": {"n": {"type": "net.velto.pattern.corenode.generator.checkerboard"}},
            "outputs": {"color": "n.result"}})");
        Write("two.json", R"({"version": 1, "nodes": {"n": {"type": "contrast"}, "m": {"type": "contrast"}},
            "outputs": {"a": "n.result", "b": "m.result"}})");
        Write("wrong.json",
            R"({"version": 1, "nodes": {"n": {"type": "contrst"}, "m": {"type": "contrast", "inputs": {"colr": 1}}},
            "outputs": {"color": "n.result"}})");
        Write("warns.json",
            R"({"version": 1, "nodes": {"n": {"type": "placement2d", "inputs": {"localModeU": "reapeat"}}},
            "outputs": {"o": "n.result"}})");
        Write("idle.json", R"({"version": 1, "nodes": {"n": {"type": "bsdflayer"}},
            "material": {"bsdflayers": [{"bsdflayer": {"from": "n.result"}}]}})");
        Write(
            "choice.json", R"({"version": 1, "nodes": {"n": {"type": "bsdflayer", "inputs": {"bsdftype": "wardbrdf"}}},
            "material": {"bsdflayers": [{"bsdflayer": {"from": "n.result"}}]}})");
        Write("nul.json", std::string("{}\0", 3));
        Write("escape.json", "{\"version\": 1, \"nodes\": {\"n\": {\"type\": \"contrast\"}}, \"outputs\": "
                             "{\"a\\u001b[2J\\u009b\": \"n.result\"}}");
        Write("far.json", R"({"version": 1, "nodes": {"n": {"type": "contrast", "inputs": {"contrast": 12}}},
            "outputs": {"o": "n.result"}})");
        std::filesystem::create_directory(folder_.Path("below"));
        Write("below/outside.json", R"({"version": 1, "nodes": {"n": {"type": "../good.json"}},
            "outputs": {"o": "n.color"}})");
        Write("broken.json", "{\"version\": \xff}");
        Write("brackets.json", std::string(100'000, '['));
        Write("samples.json", R"([{}, {"uvw": [1, 0]}])");
        Write("kernels.json", Kernels(30));
    }

    void Write(const std::string& name, const std::string& text) const { folder_.WriteBytes(name, text); }

    std::string ReadAll(const std::string& name) const { return folder_.Read(name); }

    // Each invokes the one before it ten times.
    static std::string Kernels(int count)
    {
        std::string nodes = R"("k0": {"type": "checkerboard"})";
        for (int i = 1; i <= count; ++i)
            nodes += fmt::format(
                R"(, "k{}": {{"type": "kernel", "inputs": {{"color": {{"from": "k{}.result"}}}}}})", i, i - 1);
        return fmt::format(R"({{"version": 1, "nodes": {{{}}}, "outputs": {{"o": "k{}.result"}}}})", nodes, count);
    }

    // In the test's folder.
    Ran Run(const std::string& arguments, const char* before = "true") const
    {
        const std::string command = fmt::format("cd {} && {} && {} {} >out.txt 2>err.txt </dev/null", folder_.Path(""),
            before, VELTO_BUILD_DIR "/velto", arguments);
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll("out.txt"), ReadAll("err.txt")};
    }

    const TemporaryFolder folder_;
};

TEST_F(CommandTest, ExitStatusesAndDiagnostics)
{
    struct Row
    {
        std::string arguments;
        int status;
        std::string err; // part of it; empty: there is none
    };
    const std::vector<Row> rows{
        {"--version", 0, ""},
        {"--help", 0, ""},
        {"bake --help", 0, ""},
        {"", 2, "velto: error: "},
        {"paint", 2, "velto: error: "},
        {"bake good.json", 2, "-o"},
        {"bake good.json -o x.png --size 0", 2, "--size 0: expected N or WxH"},
        {"bake good.json -o x.png --size 40000", 2, "--size 40000"},
        {"bake good.json -o x.png --crop 1,1,2x", 2, "--crop 1,1,2x: expected X,Y,WxH"},
        {"bake good.json -o x.png --size 8 --crop 4,4,5x1", 2, "is not inside 8x8"},
        {"bake good.json -o x.png --frames 3-", 2, "--frames 3-"},
        {"bake good.json -o x.png --frames 1-3", 2, "{frame}"},
        {"bake good.json -o x#.png --frame 1 --frames 1-3", 2, "velto: error: "},
        {"bake good.json -o x.png --depth int", 2, "--depth int: expected one of"},
        {"bake good.json -o x.png --supersample 0", 2, "velto: error: "},
        {"bake good.json -o x.png --render-mode 3", 2, "velto: error: "},
        {"bake good.json -o x.png --output colour", 2, "did you mean \"color\"?"},
        {"bake good.json -o x.png --set n.colour=1", 2, "did you mean \"color\"?"},
        {"bake good.json -o x.png --set n", 2, "expected NODE.PORT=VALUE"},
        {"bake two.json -o x.png", 2, "{output}"},
        {"bake nosuch.json -o x.png", 2, "nosuch.json: cannot be read"},
        {"bake . -o x.png", 2, "velto: error: .: "},
        {"bake wrong.json -o x.png", 2, "wrong.json: nodes.n.type: "},
        {"bake broken.json -o x.png", 2, "broken.json: version: not JSON"},
        {"bake brackets.json -o x.png", 2, "nested more than 256 deep"},
        {"bake good.json -o nosuch/x.png --size 8", 1, "nosuch/x.png cannot be written"},
        {"bake good.json -o x.nosuch --size 8", 1, "x.nosuch"},
        {"bake failing.json -o x.png --size 8", 1, "nodes.n: "},
        {"bake good.json -o x.png --size 8", 0, ""},
        {"bake two.json -o {output}.png --size 8", 0, ""},
        {"bake idle.json -o x.png", 2, "idle.json: material: drives no channel"},
        {"bake choice.json -o x.png", 2, "choice.json: material: none of its channels is a picture (layer1.bsdftype)"},
        {"bake choice.json -o x.png --output layer1.bsdftype", 1,
            "layer1.bsdftype is a InternedId, which is not a picture"},
        {"eval idle.json", 2, "idle.json: material: drives no channel"},
        {"inspect idle.json", 0, ""},
        {"inspect wrong.json", 2, "wrong.json: nodes.n.type: "},
        {"check idle.json", 0, ""},
        {"check good.json", 0, ""},
        {"check wrong.json", 2, "nodes.m.inputs.colr"},
        {"check warns.json", 0, "velto: warning: warns.json: nodes.n.inputs.localModeU: "},
        {"eval good.json", 0, ""},
        {"eval failing.json", 1, ""},
        {"eval good.json --samples samples.json", 2, "samples.json: [1].uvw: expected 3 numbers, got 2"},
        {"nodes", 0, ""},
        {"bakee good.json -o x.png", 2, "there is no command \"bakee\"; did you mean \"bake\"?"},
        {"bake good.json -o x.png --siez 8", 2, "there is no option \"--siez\"; did you mean \"--size\"?"},
        {"bake good.json -o x.png --frame ''", 2, "expected a value"},
        {"bake good.json -o x.png --crop ''", 2, "expected a value"},
        {"bake good.json -o x.png --fps nan", 2, "not in range"},
        {"check warns.json --strict", 2, "velto: error: warns.json: nodes.n.inputs.localModeU: "},
        {"check warns.json --quiet", 0, ""},
        {"check nul.json", 2, "nul.json: not JSON at byte 3: a NUL byte"},
        {"check escape.json", 2, "outputs.a\\x1b[2J\\u009b: a name is letters"},
        {"check far.json", 0, "far.json: nodes.n.inputs.contrast: 12 is above the most, 10"},
        {"check below/outside.json --files below", 2, "there is no node type \"../good.json\""},
        {"bake below/outside.json -o x.png --preset none", 2, "there is no such preset"},
        {"check kernels.json", 1, "kernels.json: takes about 1.1e+30 evaluations a sample, and no more than 1e+09"},
        {"eval kernels.json", 1, "the nodes evaluated most are nodes.k0, nodes.k1, nodes.k2"},
        {"bake kernels.json -o kernels.png", 1, "--force"},
        {"check kernels.json --force", 0, ""},
        {"bake kernels.json -o kernels.png --size 1 --force --time-limit 0.2", 1, "the time limit is over"},
        {"nodes mix", 0, ""},
        {"nodes contrst", 2, "did you mean \"contrast\"?"},
        {"nodes contrast --module nosuch.module", 1, "nosuch.module"},
        {"module", 0, ""},
    };
    for (const Row& row : rows)
    {
        const Ran ran = Run(row.arguments);
        EXPECT_EQ(row.status, ran.status) << row.arguments << "\n" << ran.err;
        if (row.err.empty())
            EXPECT_EQ("", ran.err) << row.arguments;
        else
        {
            EXPECT_THAT(ran.err, StartsWith("velto: ")) << row.arguments;
            EXPECT_THAT(ran.err, HasSubstr(row.err)) << row.arguments;
            EXPECT_THAT(ran.err, EndsWith("\n"));
        }
        if (row.status == 2)
            EXPECT_EQ("", ran.out) << row.arguments;
        EXPECT_LT(ran.err.size(), 1000u) << row.arguments;
    }
    // What failed left nothing; what worked did.
    EXPECT_TRUE(std::filesystem::exists(folder_.Path("x.png")));
    EXPECT_TRUE(std::filesystem::exists(folder_.Path("b.png")));
    EXPECT_THAT(folder_.Names(), ::testing::Each(::testing::Not(HasSubstr(".part"))));
}

TEST_F(CommandTest, CheckReportsEveryFault)
{
    const Ran ran = Run("check wrong.json");
    EXPECT_EQ("velto: error: wrong.json: nodes.n.type: there is no node type \"contrst\"; did you mean \"contrast\"?\n"
              "velto: error: wrong.json: nodes.m.inputs.colr: there is no such input; did you mean \"color\"?\n",
        ran.err);
}

TEST_F(CommandTest, EvalPrintsNothingButJson)
{
    const Ran ran = Run("eval good.json --counts --set n.contrast=-1");
    EXPECT_EQ(R"({"results": [{"outputs": {"color": [0.5, 0.5, 0.5, 1]}, "evaluations": {"n": 1}}]})",
        Parse(ran.out).Write());
    const Json failed = Parse(Run("eval failing.json").out);
    EXPECT_EQ("net.velto.error.nullptr", Output(failed, "color"));
}

TEST_F(CommandTest, InspectShowsTheWiresOfARoot)
{
    const Json root = Parse(Run("inspect idle.json").out);
    std::vector<std::string> forwarded;
    for (const Json& wire : root.Find("wires")->Elements())
    {
        if (wire.Find("mode")->AsString() == "0x0000000000001010")
            forwarded.push_back(wire.Find("from")->AsString() + " " + wire.Find("to")->AsString());
    }
    ASSERT_EQ(21u, forwarded.size()); // all inputs but the context
    EXPECT_EQ("inputs.bsdflayers outputs.materialout.layers", forwarded.front());
    EXPECT_EQ("inputs.aovs outputs.materialout.aovs", forwarded.back());
}

TEST_F(CommandTest, FramesAreNumberedAndTimed)
{
    EXPECT_EQ(0, Run("bake good.json -o f.##.png --size 4 --frames 8-10").status);
    for (const char* const name : {"f.08.png", "f.09.png", "f.10.png"})
        EXPECT_TRUE(std::filesystem::exists(folder_.Path(name))) << name;
}

TEST_F(CommandTest, NodesTellEditorsOfGroupsAndCommands)
{
    const Json image = Parse(Run("nodes image --json").out);
    ASSERT_TRUE(image.Find("buttons"));
    const Json& buttons = image.Find("buttons")->Elements().at(0);
    EXPECT_EQ("net.velto.pattern.node.generator.image.imagebuttongroup", buttons.Find("id")->AsString());
    EXPECT_EQ(5u, buttons.Find("commands")->Elements().size());
    EXPECT_THAT(image.Write(), HasSubstr(R"("group": "imagesequence")"));
    EXPECT_THAT(Run("nodes spline --json").out, HasSubstr("net.velto.node.portbundle.splineknot.break"));
}

// Whatever threads did it, and with what they start from left out.
TEST_F(CommandTest, StatsTellOfRastersAndOfWhatBakedThem)
{
    Write("soft.json", R"({"version": 1, "nodes": {"tiles": {"type": "checkerboard"},
        "soft": {"type": "blur", "inputs": {"color": {"from": "tiles.result"}, "resolution": 64}}},
        "outputs": {"color": "soft.result"}})");
    const Ran ran = Run("bake soft.json -o x.png --size 8 --stats");
    EXPECT_TRUE(AreEqual(Parse(R"({"samples": 64, "evaluations": {"tiles": 4160, "soft": 65},
        "rasters": [{"node": "soft", "width": 64, "height": 64, "bytes": 131072}]})"),
        Parse(ran.err)));
}

// A full device that takes the result is a failure, not a success with nothing.
TEST_F(CommandTest, OutputThatCannotBeWrittenFails)
{
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP();
    const int status = std::system(VELTO_BUILD_DIR "/velto nodes --json > /dev/full 2>/dev/null");
    EXPECT_EQ(1, WEXITSTATUS(status));
}

// Whatever it does, and without a trace.
TEST_F(CommandTest, SignalsAndTheTimeLimitEndABakeAtOnce)
{
    Write("kept.exr", "kept");
    Write("raster.json", R"({"version": 1, "nodes": {"n": {"type": "noise"}, "c": {"type": "cache", "inputs":
        {"color": {"from": "n.result"}, "width": 8192, "height": 8192}}}, "outputs": {"color": "c.result"}})");
    const struct
    {
        int signal; // 0: the time limit
        const char* document;
    } table[] = {{SIGINT, "good.json"}, {SIGTERM, "good.json"}, {SIGHUP, "good.json"}, {SIGQUIT, "good.json"},
        {0, "good.json"}, {SIGINT, "kernels.json"}, {SIGINT, "raster.json"}};
    const std::size_t before = folder_.Names().size();
    for (const auto& [signal, document] : table)
    {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
        {
            const rlimit noCore{0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            if (chdir(folder_.Path("").c_str()) == 0 && std::freopen("err.txt", "w", stderr))
                execl(VELTO_BUILD_DIR "/velto", "velto", "bake", document, "-o", "kept.exr", "--size", "32768",
                    "--force", "--time-limit", signal == 0 ? "0.4" : "1000", nullptr);
            _exit(127);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(signal == 0 ? 0 : 400));
        const auto sent = std::chrono::steady_clock::now();
        if (signal != 0)
            kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - sent;
        EXPECT_LT(seconds.count(), 1.0) << document; // a tenth where nothing else runs
        if (signal != 0)
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal << ' ' << status;
        else
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
        EXPECT_EQ(
            signal == 0 ? "velto: error: the time limit is over\n" : "velto: error: interrupted\n", ReadAll("err.txt"));
        EXPECT_EQ("kept", ReadAll("kept.exr"));
        EXPECT_EQ(folder_.Names().size(), before + 1);
        std::filesystem::remove(folder_.Path("err.txt"));
    }
}

TEST_F(CommandTest, PartsMergeToTheBytesOfOneBake)
{
    Write("g.json", R"({"version": 1, "nodes": {"n": {"type": "noise", "inputs": {"octaves": 2}}},
        "outputs": {"color": {"from": "n.result", "encoding": "color"}}})"); // else it were data
    // More shards than rows of tiles, too.
    for (const char* const options : {"-o x.png --size 90x300", "-o x.exr --size 200x130 --crop 20,30,100x90",
             "-o x.tif --size 64x200 --depth float --frame 3"})
    {
        ASSERT_EQ(Run(fmt::format("bake g.json {}", options)).status, 0);
        const std::string file(options + 3, 5);
        const std::string whole = ReadAll(file);
        std::filesystem::remove(folder_.Path(file));
        for (int k = 1; k <= 4; ++k)
            ASSERT_EQ(Run(fmt::format("bake g.json {} --shard {}/4 --threads {}", options, k, k)).status, 0);
        EXPECT_FALSE(std::filesystem::exists(folder_.Path(file)));
        std::string parts;
        for (int k = 1; k <= 4; ++k)
            parts += fmt::format(" x.{}-of-4.part.exr", k);
        ASSERT_EQ(Run(fmt::format("merge -o {}{}", file, parts)).status, 0); // without the graph
        EXPECT_TRUE(ReadAll(file) == whole) << options;
        const Ran merged = Run(fmt::format("merge g.json {} --remove-parts", options));
        EXPECT_EQ(merged.status, 0) << merged.err;
        EXPECT_TRUE(ReadAll(file) == whole) << options;
        EXPECT_FALSE(std::filesystem::exists(folder_.Path("x.1-of-4.part.exr")));
    }
    const std::string all = "-o x.png --size 90x300";
    ASSERT_EQ(Run("bake g.json " + all).status, 0);
    const std::string whole = ReadAll("x.png");
    std::filesystem::remove(folder_.Path("x.png"));
    const Ran farmed = Run("farm g.json " + all + " --shards 3 --engine local");
    EXPECT_EQ(farmed.status, 0) << farmed.err;
    EXPECT_TRUE(ReadAll("x.png") == whole);
}

TEST_F(CommandTest, PartsThatDoNotMakeAWholeAreNamed)
{
    const std::string good = "good.json -o x.png --size 40x200 ";
    for (int k = 1; k <= 3; ++k)
        ASSERT_EQ(Run(fmt::format("bake {} --shard {}/3", good, k)).status, 0);
    const std::string part = ReadAll("x.2-of-3.part.exr");
    const auto left = [&] { return std::filesystem::last_write_time(folder_.Path("x.2-of-3.part.exr")); };
    const auto before = left();
    EXPECT_THAT(Run("bake " + good + "--shard 2/3 --skip-existing").err, HasSubstr("is left as it is"));
    EXPECT_EQ(left(), before);
    const struct
    {
        std::string part; // in the place of the second; empty: none
        std::string arguments;
        const char* error;
    } table[] = {
        {"", good, "x.2-of-3.part.exr is missing"},
        {part.substr(0, part.size() - 1), good, "x.2-of-3.part.exr is cut off or damaged"},
        {part.substr(0, 40), good, "x.2-of-3.part.exr is not a part of a picture, or is cut off"},
        {part, good + "--set n.contrast=1", "x.2-of-3.part.exr belongs to another bake"},
        {ReadAll("x.1-of-3.part.exr"), good, "x.2-of-3.part.exr: part 1 is given twice"},
        {part, "-o x.png x.1-of-3.part.exr x.3-of-3.part.exr", "x.2-of-3.part.exr is missing"},
    };
    for (const auto& row : table)
    {
        std::filesystem::remove(folder_.Path("x.2-of-3.part.exr"));
        if (!row.part.empty())
            Write("x.2-of-3.part.exr", row.part);
        const Ran merged = Run("merge " + row.arguments);
        EXPECT_EQ(merged.status, 1) << row.error;
        EXPECT_THAT(merged.err, HasSubstr(row.error));
        EXPECT_FALSE(std::filesystem::exists(folder_.Path("x.png")));
    }
    Write("x.2-of-3.part.exr", part);
    EXPECT_EQ(Run("merge -o x.png x.3-of-3.part.exr x.1-of-3.part.exr x.2-of-3.part.exr").status, 0);
    for (const char* const wrong : {"0/3", "4/3", "1/0", "1", "1/2/3", "a/b", "-1/3"})
        EXPECT_EQ(Run("bake " + good + "--shard " + wrong).status, 2) << wrong;
}

// By their contents, whichever of them a frame shows.
TEST_F(CommandTest, PartsBelongToThePicturesOfASequence)
{
    Write("s.json", R"({"version": 1, "nodes": {"n": {"type": "image", "inputs": {"url": "p.1.exr", "frameStart": 1,
        "frameEnd": 3}}}, "outputs": {"color": "n.result"}})");
    for (int i = 1; i <= 3; ++i)
        ASSERT_EQ(Run(fmt::format("bake good.json -o p.{}.exr --size 4 --set n.contrast=0.{}", i, i)).status, 0);
    ASSERT_EQ(Run("bake s.json -o x.png --size 8 --shard 1/1").status, 0);
    ASSERT_EQ(Run("merge s.json -o x.png --size 8").status, 0);
    ASSERT_EQ(Run("bake good.json -o p.3.exr --size 4").status, 0);
    EXPECT_THAT(Run("merge s.json -o x.png --size 8").err, HasSubstr("belongs to another bake"));
    std::filesystem::remove(folder_.Path("p.3.exr"));
    EXPECT_THAT(Run("merge s.json -o x.png --size 8").err, HasSubstr("belongs to another bake"));
}

// What cannot be written is named, and nothing is left of it or lost.
TEST_F(CommandTest, PlacesThatTakeNoFileAreNamed)
{
    Write("noise.json", R"({"version": 1, "nodes": {"n": {"type": "noise"}}, "outputs": {"o": "n.result"}})");
    const std::string whole = "noise.json -o x.exr --size 256";
    ASSERT_EQ(Run("bake " + whole + " --shard 1/1").status, 0);
    const std::vector<std::string> before = folder_.Names();
    for (const std::string& arguments :
        {std::string("bake noise.json -o y.exr --size 256 --shard 1/1"), "merge " + whole})
    {
        const Ran limited = Run(arguments, "ulimit -f 16"); // kilobytes, or half of them
        EXPECT_EQ(limited.status, 1);
        EXPECT_THAT(limited.err, HasSubstr(".exr cannot be written: File too large"));
        EXPECT_EQ(folder_.Names(), before);
    }
    EXPECT_EQ(Run("merge " + whole).status, 0);
    const Ran refused = Run("bake noise.json -o /sys/x.exr --size 8 --shard 1/1");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("/sys/x.1-of-1.part.exr cannot be written"));
}

TEST_F(CommandTest, ASummaryTellsThePixelsWhateverTheFormat)
{
    const Ran png = Run("bake good.json -o x.png --size 30x20 --json --threads 2");
    const Ran exr = Run("bake good.json -o x.exr --size 30x20 --json --threads 1 --progress json");
    const Json one = Parse(png.out);
    const Json other = Parse(exr.out);
    const Json& file = one.Find("files")->Elements()[0];
    EXPECT_EQ(file.Find("pixels")->AsString().size(), 64u);
    EXPECT_EQ(file.Find("pixels")->AsString(), other.Find("files")->Elements()[0].Find("pixels")->AsString());
    EXPECT_EQ(file.Find("bytes")->AsInteger(), static_cast<Int>(std::filesystem::file_size(folder_.Path("x.png"))));
    EXPECT_EQ(one.Find("samples")->AsInteger(), 600);
    const Json last = Parse(exr.err.substr(exr.err.rfind('{')));
    EXPECT_EQ(last.Find("share")->AsNumber(), 1.0);
    const Ran streamed = Run("bake good.json -o - --format png --size 30x20");
    EXPECT_TRUE(streamed.out == ReadAll("x.png"));
    EXPECT_EQ(Run("bake good.json -o - --size 30x20").status, 2);
}

} // namespace

} // namespace velto::test
