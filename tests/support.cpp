#include "support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "board/bitboard.h"
#include "board/fen.h"

namespace quarn::test {

namespace {

// Tables are built once for the whole test binary, as start-up does for the engine.
class TablesEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        initTables();
        initCastleKeys();
    }
};

const auto* const kTables = ::testing::AddGlobalTestEnvironment(new TablesEnvironment);

}  // namespace

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string dataPath(const std::string& name) { return std::string(QUARN_TEST_DATA) + "/" + name; }

std::vector<EpdEntry> loadEpd(const std::string& name) {
    std::vector<EpdEntry> entries;
    std::ifstream in(dataPath(name));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        EpdEntry e;
        const size_t semi = line.find(';');
        e.fen = line.substr(0, semi);
        while (!e.fen.empty() && e.fen.back() == ' ') e.fen.pop_back();
        for (size_t p = semi; p != std::string::npos; p = line.find(';', p + 1)) {
            unsigned depth = 0;
            unsigned long long count = 0;
            if (std::sscanf(line.c_str() + p, ";D%u %llu", &depth, &count) == 2) {
                if (e.counts.size() < depth) e.counts.resize(depth);
                e.counts[depth - 1] = count;
            }
        }
        entries.push_back(e);
    }
    return entries;
}

std::vector<std::string> loadFens(const std::string& name) {
    std::vector<std::string> fens;
    std::ifstream in(dataPath(name));
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string field, fen;
        for (int i = 0; i < 4 && words >> field; ++i) fen += (i ? " " : "") + field;
        if (!fen.empty()) fens.push_back(fen);
    }
    return fens;
}

Position positionFrom(const std::string& fen) {
    Position pos;
    EXPECT_EQ(setFen(pos, fen.c_str()), 1) << fen;
    return pos;
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
pid_t spawn(const std::vector<std::string>& args, const std::string& dir, int in, int out,
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

EngineRun runEngine(const std::string& input, const std::vector<std::string>& args,
                    const std::string& workDir) {
    TempDir scratch;
    std::ofstream(scratch.file("stdin"), std::ios::binary) << input;
    const int in = open(scratch.file("stdin").c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(scratch.file("stdout").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const int err = open(scratch.file("stderr").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    EngineRun run;
    const pid_t pid = spawn(args, workDir.empty() ? scratch.path() : workDir, in, out, err);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
        run.status = WEXITSTATUS(status);
    for (int fd : {in, out, err}) close(fd);
    run.out = readFile(scratch.file("stdout"));
    run.err = readFile(scratch.file("stderr"));
    return run;
}

EngineSession::EngineSession(const std::vector<std::string>& args, bool terminal) {
    signal(SIGPIPE, SIG_IGN);
    int up[2] = {-1, -1}, down[2] = {-1, -1};  // to the engine, from it
    if (terminal) {
        up[1] = down[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (up[1] < 0 || grantpt(up[1]) || unlockpt(up[1])) return;
    } else if (pipe2(up, O_CLOEXEC) || pipe2(down, O_CLOEXEC)) {
        return;
    }
    const int err = open(dir.file("stderr.txt").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    pid_ = spawn(args, dir.path(), up[0], down[1], err, terminal ? ptsname(up[1]) : "");
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
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace quarn::test
