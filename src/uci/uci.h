// The UCI protocol handler: commands from the GUI, the engine's status, and the search's
// reports turned into "info" and "bestmove" lines.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "board/position.h"
#include "search/root.h"
#include "shell/sharedstring.h"
#include "uci/streamwriter.h"

namespace quarn {

// The engine's status as the GUI drives it.
enum UciStatus : int32_t { FINISHED = 0, POSITION = 1, SEARCHING = 2, PONDERING = 3 };

// A finished search whose "bestmove" was not sent yet: a ponder search waits for "ponderhit" or
// "stop", an infinite one for "stop". A "position" or a new "go" sends it too, so every "go" gets
// exactly one answer.
enum HeldAnswer : uint8_t { HELD_NONE, HELD_PONDER, HELD_INFINITE };

// The Move Overhead option: milliseconds a GUI or a network loses per move.
constexpr int kDefaultMoveOverheadMs = 30;
constexpr int kLargestMoveOverheadMs = 5000;

class Uci : public SearchReporter {
public:
    Uci(Position* position, FILE* out);

    // Handles a line given as its first word and the rest; false when the word is no protocol
    // command (the console then tries the line).
    bool dispatch(const char* word, const char* arguments);
    bool uciMode() const { return uciMode_; }

    // The search's reports (called on the master search thread).
    void reportCurrentMove(uint32_t depth, uint32_t moveIndex, Move move) override;
    void reportPv(const PvReport& report) override;
    void reportFinished(const PvReport& report, Move bestMove, Move ponderMove) override;

    UciStatus status();
    bool sendPv() const { return sendPv_; }

private:
    // Handlers.
    void onUci();
    void onIsReady();
    void onNewGame();
    void onPosition();
    void onGo();
    void onSetOption();
    void onPonderHit();
    void onStop();
    [[noreturn]] void onQuit();

    // Sets the status and returns the old one; with `held`, also takes the held answer (which
    // is then none).
    UciStatus exchangeStatus(UciStatus next, HeldAnswer* held = nullptr);
    // Sends a held answer: the best move, with its ponder move when `withPonder`.
    void sendHeld(HeldAnswer held, bool withPonder);
    void setMoveOverhead();
    void setThreadCount();
    void setMultiPv();
    // The moves of a "go searchmoves" list, legal ones kept, the others refused on stderr; returns
    // the word that ended the list (another go parameter), or an empty one.
    SharedString readSearchMoves(Move* moves, int& count);
    bool searchRunning();
    void sendBestMove(Move best, Move ponder);
    void playMoves();
    void writeOptions();

    // Info lines.
    void clearThrottle();
    uint32_t searchTime() const;
    int writeStatistics(char* buf, int size) const;
    void sendPvLine(const PvReport& report);

    Position* position_;
    StreamWriter out_;
    SharedString arguments_;  // the words not yet taken from the current line
    bool uciMode_ = false;
    bool verbose_ = false;
    bool useBook_ = true;
    std::atomic<bool> sendPv_{true};  // set by the input thread, read by the search's reports
    int reserveMs_ = 3000;
    int moveOverheadMs_ = kDefaultMoveOverheadMs;
    SharedString opponentTitle_, opponentKind_, opponentName_;
    int opponentRating_ = 0;

    // The last finished search's answer, for a held answer sent later.
    Move bestMove_ = 0, ponderMove_ = 0;

    std::mutex statusMutex_;
    UciStatus status_ = FINISHED;
    HeldAnswer held_ = HELD_NONE;  // under statusMutex_
    bool infiniteGo_ = false;      // the search running is "go infinite"; under statusMutex_

    uint32_t outOfBookPly_ = 0;  // game ply + 1 of the first search of the game, 0 = none
    uint64_t outOfBookKey_ = 0;

    // Throttle of the info lines, cleared by every "go".
    uint32_t nextInfoTime_ = 0;
    int lastPvDepth_ = 0;
    int lastPvScore_ = 0;
    Move lastPvMove_ = 0;
    int repeatFlag_ = 0;
};

// The one handler, made by start-up.
Uci& uci();
void initUci(Position* position);

// A move in coordinate form ("e7e8Q" for a promotion, "0000" for none); buf needs 6 bytes.
char* writeUciMove(char* buf, Move m);

// Promotion letters in lower case ("e7e8q") in every move the protocol sends, for clients that
// refuse the upper-case form; set once from the command line, before any search.
void setLowercasePromotions(bool on);

}  // namespace quarn
