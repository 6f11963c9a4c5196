#include "uci/uci.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "board/fen.h"
#include "board/movegen.h"
#include "board/movetext.h"
#include "search/pool.h"
#include "search/timecontrol.h"
#include "search/tt.h"
#include "shell/clock.h"
#include "shell/lineinput.h"
#include "shell/log.h"
#include "shell/version.h"

namespace quarn {

namespace {

std::unique_ptr<Uci> handler;
bool lowercasePromotions = false;

}  // namespace

Uci& uci() { return *handler; }

void initUci(Position* position) { handler = std::make_unique<Uci>(position, stdout); }

void setLowercasePromotions(bool on) { lowercasePromotions = on; }

char* writeUciMove(char* buf, Move m) {
    if (!m) {
        std::memcpy(buf, "0000", 5);
        return buf + 4;
    }
    char* out = writeSquare(buf, fromSquare(m));
    out = writeSquare(out, toSquare(m));
    if (promotionType(m)) {
        const char letter = kPromotionLetters[promotionType(m)];
        *out++ = lowercasePromotions ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    *out = 0;
    return out;
}

Uci::Uci(Position* position, FILE* out) : position_(position), out_(out) {}

UciStatus Uci::exchangeStatus(UciStatus next, HeldAnswer* held) {
    std::lock_guard<std::mutex> lock(statusMutex_);
    const UciStatus old = status_;
    status_ = next;
    if (held) {
        *held = held_;
        held_ = HELD_NONE;
    }
    return old;
}

UciStatus Uci::status() {
    std::lock_guard<std::mutex> lock(statusMutex_);
    return status_;
}

bool Uci::dispatch(const char* word, const char* arguments) {
    // 1. An empty line is ours only in protocol mode.
    if (!word[0]) return uciMode_;
    // 2. Echo the line into the log.
    if (uciMode_) logProtocol(word, arguments);
    // 3. The arguments, without leading blanks.
    while (*arguments == ' ') ++arguments;
    arguments_ = SharedString::fromText(arguments);
    // 4. The commands.
    struct Command {
        const char* name;
        void (Uci::*run)();
    };
    static const Command commands[] = {
        {"uci", &Uci::onUci},           {"position", &Uci::onPosition},   {"go", &Uci::onGo},
        {"isready", &Uci::onIsReady},   {"setoption", &Uci::onSetOption}, {"ucinewgame", &Uci::onNewGame},
        {"ponderhit", &Uci::onPonderHit}, {"stop", &Uci::onStop},
    };
    for (const Command& c : commands) {
        if (std::strcmp(word, c.name) != 0) continue;
        (this->*c.run)();
        out_.flush();
        if (FILE* log = logStream()) std::fflush(log);
        return true;
    }
    if (!std::strcmp(word, "quit")) onQuit();
    // 5. Not ours.
    if (uciMode_) {
        std::fprintf(stderr, "unknown uci command: %s %s\n", word, arguments);
        std::fflush(stderr);
    }
    return false;
}

void Uci::onUci() {
    setUpLogFile();
    openErrorLog();
    out_.print("\n");
    out_.print("id name %s-%s\n", kEngineName, kEngineVersion);
    out_.print("id author %s\n", kAuthor);
    writeOptions();
    std::fwrite("uciok\n", 1, 6, out_.file());
    out_.flush();
    uciMode_ = true;
    // From now on stdout carries protocol lines only.
    setSearchLines(nullptr);
    logProtocol("<--uciok", nullptr);
}

void Uci::onIsReady() {
    // The table's pages, once, before the GUI's first search can pay for them.
    if (!tt.prefaulted() && !searchRunning()) {
        waitIdle();
        tt.prefault();
    }
    out_.print("readyok\n");
    out_.flush();
    logProtocol("<--readyok", nullptr);
}

void Uci::onNewGame() {
    if (verbose_) logProtocol("newgame!", nullptr);
    // What the last game taught the search does not carry over: neither its quiet-move
    // history nor its table, whose scores near the fifty-move limit of that game were draws
    // that a fresh game starting from the same material is not bound by. A search still
    // running keeps both until it ends.
    if (!searchRunning()) {
        clearSearchHistory();  // waits for the threads to be idle first
        tt.clear();
    }
    outOfBookPly_ = 0;
    outOfBookKey_ = 0;
}

[[noreturn]] void Uci::onQuit() {
    out_.flush();
    logMessage("exit()!\n");
    if (FILE* log = logStream()) std::fflush(log);
    // A running search is not stopped: leaving the process ends it, without a "bestmove".
    std::fflush(nullptr);
    flushHistory();
    _exit(0);
}

void Uci::onPosition() {
    if (verbose_) logProtocol("position()...", nullptr);
    SharedString word = nextWord(arguments_);
    // 2. A new position ends any search.
    HeldAnswer held;
    const UciStatus old = exchangeStatus(POSITION, &held);
    if (held != HELD_NONE) sendHeld(held, true);  // the last "go" is answered before it is left
    if (old == SEARCHING || old == PONDERING) {
        std::fprintf(stderr, "uci::position(): search still running? status=%i\n", old);
        logMessage("position: not stopped? stopping!...");
        stopSearch();
        logMessage("position: stopped.");
    } else if (old == POSITION) {
        logMessage("uci: 2x position?\n");
    }
    waitIdle();
    // 3. The position itself.
    bool valid = true;
    if (word.equals("startpos")) {
        setFen(*position_, kStartFen);
        computeAttackInfo(*position_);
        word = nextWord(arguments_);
    } else if (word.equals("fen")) {
        SharedString fen = SharedString::fromText("");
        for (word = nextWord(arguments_); word.length() > 1 && !word.equals("moves"); word = nextWord(arguments_)) {
            fen.append(word.chars(), word.length() - 1);
            fen.append(" ", 1);
        }
        static Position scratch;
        valid = setFen(scratch, fen.chars()) != 0;
        if (valid) copyPosition(*position_, scratch);
    }
    // 4-5. The moves, and a new game when they leave the line of the previous search.
    if (valid && word.equals("moves")) playMoves();
    if (FILE* log = logStream()) printBoard(*position_, log, false);
    if (verbose_) logProtocol("position() ok", nullptr);
}

void Uci::playMoves() {
    bool metOutOfBookKey = false;
    for (;;) {
        if (arguments_.length() < 2) break;
        SharedString word = nextWord(arguments_);
        if (word.length() < 2) break;
        if (word.chars()[0] == '.') {
            logMessage("SKIP continuation move: %s\n", word.chars());
            continue;
        }
        const Move m = parseMove(*position_, word.chars());
        if (!m) {
            std::fprintf(stderr, "WARNING invalid move from GUI: %s\n", word.chars());
            break;
        }
        // The history holds the game and a search below it: a long game keeps its recent part.
        if (position_->ply + 1 >= static_cast<uint32_t>(kHistorySize - kMaxPly)) trimHistory(*position_);
        makeMove(*position_, m);
        computeAttackInfo(*position_);
        if (position_->hashKey == outOfBookKey_) metOutOfBookKey = true;
    }
    if (!metOutOfBookKey && outOfBookPly_) onNewGame();
}

void Uci::sendBestMove(Move best, Move ponder) {
    char text[64] = "bestmove ";
    char* out = writeUciMove(text + 9, best);
    if (ponder) {
        std::memcpy(out, " ponder ", 8);
        out = writeUciMove(out + 8, ponder);
    }
    std::memcpy(out, "\n", 2);
    out_.putString(text);
    out_.flush();
    if (!best) std::fprintf(stderr, "No move generated! bm=%x\n", best);
}

void Uci::sendHeld(HeldAnswer held, bool withPonder) {
    logMessage("Uci: sending the held bestmove of a finished %s search\n",
               held == HELD_PONDER ? "ponder" : "infinite");
    sendBestMove(bestMove_, withPonder ? ponderMove_ : 0);
}

void Uci::onPonderHit() {
    if (verbose_) logProtocol("ponderhit()...", nullptr);
    HeldAnswer held;
    const UciStatus old = exchangeStatus(SEARCHING, &held);
    switch (old) {
        case FINISHED:
            logMessage("Uci:ponderhit(): already finished\n");
            if (held == HELD_PONDER) {
                exchangeStatus(FINISHED);
                sendHeld(held, true);
            } else {
                // An infinite search's move waits for "stop"; an answer already sent is not
                // sent twice.
                std::lock_guard<std::mutex> lock(statusMutex_);
                status_ = FINISHED;
                held_ = held;
            }
            break;
        case POSITION:
            std::fputs("uci:: ponderhit without preceeding go(): send bestmove 0000\n", stderr);
            exchangeStatus(POSITION);
            sendBestMove(0, 0);
            break;
        case SEARCHING:
            std::fputs("uci::ponderhit status==SEARCHING, ponderhit ignored\n", stderr);
            break;
        case PONDERING: {
            // The search thread builds the root moves before its first iteration starts.
            const int depth = masterRoot().depth.load();
            const int moves = depth > 0 ? masterRoot().legalMoveCount : 0;
            if (timeControl.ponderHit(moves, depth)) pool.threads[0]->requestStop();
            break;
        }
        default:
            std::fprintf(stderr, "uci::ponderhit unknown status==%i, ponderhit ignored\n", old);
    }
    if (verbose_) logProtocol("ponderhit() ok", nullptr);
}

void Uci::onStop() {
    if (verbose_) logProtocol("stop()...", nullptr);
    HeldAnswer held;
    const UciStatus old = exchangeStatus(FINISHED, &held);
    if (old == FINISHED) {
        // A ponder search's move goes without its ponder move, an infinite search's with it; a
        // stop that crosses an answer on its way sends nothing, or the GUI would read a second
        // "bestmove" as the reply to its next "go".
        if (held != HELD_NONE) {
            sendHeld(held, held == HELD_INFINITE);
        } else {
            logMessage("uci:stop(): no search running, its bestmove was sent\n");
        }
    } else if (old == POSITION) {
        std::fputs("uci:: stop without preceeding go?\n", stderr);
        sendBestMove(0, 0);
    } else {
        // The finished report that follows sends the move.
        logMessage("uci:stop() START\n");
        stopSearch();
        logMessage("uci:stop() END\n");
    }
    if (verbose_) logProtocol("stop() ok", nullptr);
}

void Uci::reportFinished(const PvReport& report, Move bestMove, Move ponderMove) {
    sendPvLine(report);
    bestMove_ = bestMove;
    ponderMove_ = ponderMove;
    HeldAnswer hold = HELD_NONE;
    {
        std::lock_guard<std::mutex> lock(statusMutex_);
        const UciStatus old = status_;
        status_ = FINISHED;
        // The GUI has not decided yet: a ponder search's move waits for "ponderhit" or "stop",
        // an infinite search's (it ran out of depth) for "stop".
        if (old == PONDERING) hold = HELD_PONDER;
        if (old == SEARCHING && infiniteGo_) hold = HELD_INFINITE;
        held_ = hold;
    }
    if (hold == HELD_PONDER) {
        logMessage("Uci:finish() delay sending bestmove, status is still 'pondering'\n");
        return;
    }
    if (hold == HELD_INFINITE) {
        logMessage("Uci:finish() delay sending bestmove of an infinite search until 'stop'\n");
        return;
    }
    sendBestMove(bestMove_, ponderMove_);
}

}  // namespace quarn
