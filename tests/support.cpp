#include "support.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

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

EngineRun runEngine(const std::string& input, const std::vector<std::string>& args,
                    const std::string& workDir) {
    TempDir scratch;
    const std::string& dir = workDir.empty() ? scratch.path() : workDir;
    char inName[] = "/tmp/quarn-in-XXXXXX", outName[] = "/tmp/quarn-out-XXXXXX",
         errName[] = "/tmp/quarn-err-XXXXXX";
    const int inFd = mkstemp(inName), outFd = mkstemp(outName), errFd = mkstemp(errName);
    EngineRun run;
    if (inFd < 0 || outFd < 0 || errFd < 0) return run;
    if (write(inFd, input.data(), input.size()) != static_cast<ssize_t>(input.size())) return run;
    lseek(inFd, 0, SEEK_SET);
    const pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(126);
        dup2(inFd, 0);
        dup2(outFd, 1);
        dup2(errFd, 2);
        std::vector<char*> argv{const_cast<char*>(QUARN_BINARY)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(QUARN_BINARY, argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = readFile(outName);
    run.err = readFile(errName);
    for (int fd : {inFd, outFd, errFd}) close(fd);
    for (const char* name : {inName, outName, errName}) unlink(name);
    return run;
}

}  // namespace quarn::test
