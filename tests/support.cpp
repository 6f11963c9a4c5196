#include "support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "board/bitboard.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/log.h"
#include "shell/searchlines.h"

namespace quarn::test {

// Tables are built once for the whole test binary, as start-up does for the engine.
struct TablesEnvironment : ::testing::Environment {
    void SetUp() override { initTables(); initCastleKeys(); }
};
const auto* const kTables = ::testing::AddGlobalTestEnvironment(new TablesEnvironment);

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string dataPath(const std::string& name) { return std::string(QUARN_TEST_DATA) + "/" + name; }

std::vector<EpdEntry> loadEpd(const std::string& name) {
    std::vector<EpdEntry> entries;
    std::ifstream in(dataPath(name));
    for (std::string line; std::getline(in, line);) {
        const Lines w = words(line);
        if (w.size() < 4) continue;
        entries.push_back({w[0] + " " + w[1] + " " + w[2] + " " + w[3], {}});
        for (size_t i = 4; i + 1 < w.size(); ++i) {  // ";D<depth> <count>" in rising depth
            if (w[i].rfind(";D", 0) != 0) continue;
            entries.back().counts.resize(std::stoul(w[i].substr(2)));
            entries.back().counts.back() = std::stoull(w[i + 1]);
        }
    }
    return entries;
}

std::vector<std::string> loadFens(const std::string& name) {
    Lines fens;
    for (const EpdEntry& e : loadEpd(name)) fens.push_back(e.fen);
    return fens;
}

Lines words(const std::string& text) {
    std::istringstream in(text);
    return Lines(std::istream_iterator<std::string>(in), {});
}

int countOf(const std::string& text, const std::string& piece) {
    int n = 0;
    for (size_t p = text.find(piece); p != std::string::npos; p = text.find(piece, p + 1)) ++n;
    return n;
}

std::string printed(const std::function<void(FILE*)>& write) {
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    write(out);
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

std::string logged(const std::function<void()>& run) {
    FILE* const stream = logStream();
    const int level = logLevel();
    std::string text = printed([&](FILE* out) {
        setLogStream(out);
        setLogLevel(kLogNormal);
        run();
    });
    setLogStream(stream);
    setLogLevel(level);
    return text;
}

Position positionFrom(const std::string& fen) {
    Position pos;
    EXPECT_EQ(setFen(pos, fen.c_str()), 1) << fen;
    return pos;
}

std::string fenOf(const Position& pos) { return getFen(pos).chars(); }

std::vector<Move> legalMoves(Position& pos) {
    Move moves[kMaxMoves];
    return {moves, generateMoves(pos, moves)};
}

std::string moveText(const Position& pos, Move m) {
    char buf[kMoveTextSize];
    writeMoveLong(pos, buf, m);
    return buf;
}

int squareAt(const char* name) { return makeSquare(name[0] - 'a', name[1] - '1'); }

void prepareSearch(int depth, uint32_t ms, int64_t nodes) {
    tt.resize(16384);
    initThreads();
    setQuiet(true);
    tt.clear();
    clearSearchHistory();
    SearchLimits limits;
    limits.depth = depth;
    limits.nodes = nodes;
    limits.moveTimeMs = ms;
    timeControl.apply(limits);
}

std::string afterStartup(const std::string& out) {
    const size_t at = out.find("\ninitialized\n");
    return at == std::string::npos ? "<start-up not finished>\n" + out : out.substr(at + 13);
}

TempDir::TempDir() {
    char name[] = "/tmp/quarn-test-XXXXXX";
    if (mkdtemp(name)) path_ = name;
}

TempDir::~TempDir() {
    if (!path_.empty()) std::filesystem::remove_all(path_);
}

namespace {

// Starts the engine in `dir` on the descriptors given or, with `tty`, on that terminal as its
// controlling terminal.
pid_t spawn(const Lines& args, const std::string& dir, int in, int out,
            int err, const std::string& tty = "") {
    std::vector<char*> argv{const_cast<char*>(QUARN_BINARY)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    if (!tty.empty() && (setsid() < 0 || (in = out = err = open(tty.c_str(), O_RDWR)) < 0))
        _exit(125);
    if (chdir(dir.c_str()) != 0) _exit(126);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    setenv("TERM", "dumb", 1);
    execv(QUARN_BINARY, argv.data());
    _exit(127);
}

}  // namespace

EngineRun runEngine(const std::string& input, const Lines& args, const std::string& workDir) {
    EngineSession engine(args, false, &input, workDir);
    const int status = engine.waitExit(600000);
    return {engine.out, readFile(engine.dir.file("stderr.txt")), status};
}

EngineSession::EngineSession(const Lines& args, bool terminal, const std::string* input,
                             const std::string& workDir) {
    signal(SIGPIPE, SIG_IGN);
    int up[2] = {-1, -1}, down[2] = {-1, -1};  // to the engine, from it
    if (terminal) {
        up[1] = down[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (up[1] < 0 || grantpt(up[1]) || unlockpt(up[1])) return;
    } else if ((input ? 0 : pipe2(up, O_CLOEXEC)) || pipe2(down, O_CLOEXEC)) {
        return;
    }
    if (input) {
        std::ofstream(dir.file("stdin.txt"), std::ios::binary) << *input;
        up[0] = open(dir.file("stdin.txt").c_str(), O_RDONLY | O_CLOEXEC);
    }
    const int err = open(dir.file("stderr.txt").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    pid_ = spawn(args, workDir.empty() ? dir.path() : workDir, up[0], down[1], err,
                 terminal ? ptsname(up[1]) : "");
    for (int fd : {err, up[0], down[1]}) close(fd);
    toEngine_ = up[1];
    fromEngine_ = down[0];
}

EngineSession::~EngineSession() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(toEngine_);
    if (fromEngine_ != toEngine_) close(fromEngine_);
}

void EngineSession::send(const std::string& text) {
    const std::string line = text + "\n";
    EXPECT_EQ(write(toEngine_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

bool EngineSession::readUntil(const std::function<bool()>& done, int ms) {
    using namespace std::chrono;
    const auto end = steady_clock::now() + milliseconds(ms);
    while (!done()) {
        const auto left = duration_cast<milliseconds>(end - steady_clock::now()).count();
        pollfd p{fromEngine_, POLLIN, 0};
        char buf[4096];
        if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) return false;
        const ssize_t n = read(fromEngine_, buf, sizeof buf);
        if (n <= 0) return !(ended_ = true);
        out.append(buf, static_cast<size_t>(n));
    }
    return true;
}

std::optional<std::string> EngineSession::line(
    const std::function<bool(const std::string&)>& match, int ms) {
    std::optional<std::string> found;
    readUntil([&] {
        for (size_t nl; !found && (nl = out.find('\n', next_)) != std::string::npos; next_ = nl + 1)
            if (match(out.substr(next_, nl - next_))) found = out.substr(next_, nl - next_);
        return found.has_value();
    }, ms);
    return found;
}

std::optional<std::string> EngineSession::line(const std::string& prefix, int ms) {
    return line([&](const std::string& l) { return l.rfind(prefix, 0) == 0; }, ms);
}

int EngineSession::waitExit(int ms) {
    int status = 0;
    readUntil([] { return false; }, ms);
    if (!ended_ || waitpid(pid_, &status, 0) != pid_) return -1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

void EngineSession::interrupt() { kill(pid_, SIGINT); }

}  // namespace quarn::test
