// The board record with incremental keys and material, and making and unmaking moves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "board/bitboard.h"
#include "board/move.h"

namespace quarn {

// Moves and keys a position can remember; `ply` must stay below this.
constexpr int kHistorySize = 1024;

// The material word of one colour, updated by one addition per piece:
// bits 0-7 points (N 3, B 3, R 5, Q 10), 8-11 pawns, 12-15 knights, 16-19 bishops,
// 20-23 rooks, 24-27 queens, 28-31 pieces other than pawns and king.
inline constexpr uint32_t kMaterialIncrement[8] = {
    0, 0x100, 0x10001003, 0x10010003, 0x10100005, 0x1100000A, 0, 0,
};

constexpr int materialPoints(uint32_t m) { return static_cast<int>(m & 0xFF); }
// Knights, bishops, rooks and queens (bits 28..31), and the fields that count them.
constexpr int materialPieces(uint32_t m) { return static_cast<int>(m >> 28); }
constexpr uint32_t kPieceFields = 0x0FFFF000;
constexpr int materialCount(uint32_t m, int type) {
    return static_cast<int>((m >> (4 * (type + 1))) & 0xF);  // pawn: bits 8-11 ... queen: 24-27
}

struct SideBlock {
    Bitboard pieces[7];  // [0] all pieces of the colour, [1..6] by type
    uint32_t kingSquare;
    uint32_t material;
};

// The irreversible part of a position: saved before a move and copied back on unmake.
struct UndoState {
    uint64_t pawnKey;
    Bitboard enemyAttacks;     // squares the side not to move attacks, our king lifted off
    Bitboard kingBlockers[2];  // per king: pieces alone between it and an enemy slider
    uint16_t fiftyStart;       // ply of the last capture or pawn move
    uint8_t castling;          // K = 1, k = 2, Q = 4, q = 8
    uint8_t epSquare;          // square of a pawn capturable en passant, else 0
};
static_assert(sizeof(UndoState) == 40);

enum CastlingRight : uint8_t { WHITE_SHORT = 1, BLACK_SHORT = 2, WHITE_LONG = 4, BLACK_LONG = 8 };

struct Position {
    SideBlock side[2];
    uint8_t board[64];
    Bitboard occupied;
    uint64_t hashKey;
    UndoState state;
    uint32_t sideToMove;
    uint32_t ply;
    Move moveHistory[kHistorySize];      // [ply] is the move that led here (0: null move)
    uint64_t keyHistory[kHistorySize];  // [i] is hashKey before the move from ply i to i + 1
};

namespace detail {

constexpr uint64_t splitMix(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// A fixed set of random keys, made at compile time. The first en-passant keys and the key of
// White's short castling right are fixed values of their own.
inline constexpr size_t kZobristKeys = size_t{16} * 64;

constexpr std::array<uint64_t, kZobristKeys> buildZobrist() {
    std::array<uint64_t, kZobristKeys> keys{};
    uint64_t state = 0x7175617266ULL;
    for (auto& k : keys) k = splitMix(state);
    keys[0] = 0x5719555B81E14BA2ULL;
    keys[1] = 0x55C0F845C2EE3CA7ULL;
    keys[2] = 0xD3559C8D507EF27FULL;
    keys[8] = 0xD624CBF347C43773ULL;
    return keys;
}

}  // namespace detail

// Zobrist keys by (piece code & 15) * 64 + square. Row 0 holds no piece: entries 0..7 are the
// en-passant keys by file, entries 8..11 the keys of the castling rights K, k, Q and q.
inline constexpr std::array<uint64_t, detail::kZobristKeys> zobrist = detail::buildZobrist();
extern uint64_t castleKeys[16];

inline uint64_t pieceKey(int code, int square) {
    return zobrist[static_cast<size_t>(code & 15) * 64 + static_cast<size_t>(square)];
}
inline uint64_t enPassantKey(int square) { return zobrist[square & 7]; }

// Castling keys by rights value: the XOR of the single-right keys.
void initCastleKeys();

void clearPosition(Position& pos);
// Copies the fixed fields and the first ply + 1 history entries.
void copyPosition(Position& dst, const Position& src);
// Puts a piece on an empty square, updating boards, keys and material; returns the material.
uint32_t addPiece(Position& pos, int colour, int type, int square);
// Keys and material recomputed from the board alone, for checking the incremental ones.
uint64_t computeHashKey(const Position& pos);
uint64_t computePawnKey(const Position& pos);
uint32_t computeMaterial(const Position& pos, int colour);
// Whole-record consistency check (boards, mailbox, keys, material); used by tests and asserts.
bool positionOk(const Position& pos);

namespace detail {

inline void movePiece(Position& pos, int colour, int code, int from, int to) {
    Bitboard fromTo = squareBit[from] | squareBit[to];
    pos.side[colour].pieces[0] ^= fromTo;
    pos.side[colour].pieces[typeOf(code)] ^= fromTo;
    pos.board[from] = 0;
    pos.board[to] = static_cast<uint8_t>(code);
}

inline void togglePiece(Position& pos, int colour, int code, int square) {
    pos.side[colour].pieces[0] ^= squareBit[square];
    pos.side[colour].pieces[typeOf(code)] ^= squareBit[square];
}

inline int castleRookOrigin(int rookTarget) { return rookTarget ^ 2 ^ ((rookTarget & 2) >> 1); }

}  // namespace detail

// Plays a legal move. The caller copies pos.state first; enemyAttacks and kingBlockers are
// stale afterwards (the next generation recomputes them). Returns the move.
inline Move makeMove(Position& pos, Move m) {
    using namespace detail;
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const int from = fromSquare(m), to = toSquare(m), captured = capturedCode(m);
    UndoState& st = pos.state;

    pos.keyHistory[pos.ply] = pos.hashKey;
    uint64_t key = pos.hashKey ^ castleKeys[st.castling];
    if (st.epSquare) {
        key ^= enPassantKey(st.epSquare);
        st.epSquare = 0;
    }
    ++pos.ply;
    pos.moveHistory[pos.ply] = m;

    if (!(m & kSpecialMask)) {
        const int code = pos.board[from];
        st.castling &= castleMask[from];
        if (captured) {
            togglePiece(pos, them, captured, to);
            pos.side[them].material -= kMaterialIncrement[typeOf(captured)];
            st.fiftyStart = static_cast<uint16_t>(pos.ply);
            st.castling &= castleMask[to];
            key ^= pieceKey(captured, to);
            if (typeOf(captured) == PAWN) st.pawnKey ^= pieceKey(captured, to);
        }
        const uint64_t moveKey = pieceKey(code, from) ^ pieceKey(code, to);
        key ^= moveKey;
        if (typeOf(code) == PAWN) {
            st.pawnKey ^= moveKey;
            st.fiftyStart = static_cast<uint16_t>(pos.ply);
            if ((m & kDoubleStepFlag) &&
                (pawnAttacks[us][(from + to) / 2] & pos.side[them].pieces[PAWN])) {
                st.epSquare = static_cast<uint8_t>(to);
                key ^= enPassantKey(to);
            }
        }
        movePiece(pos, us, code, from, to);
        if (pos.side[us].kingSquare == static_cast<uint32_t>(from))
            pos.side[us].kingSquare = static_cast<uint32_t>(to);
    } else if (m & kEnPassantFlag) {
        const int pawn = pieceCode(us, PAWN), victim = to ^ 8;
        const uint64_t k =
            pieceKey(pawn, from) ^ pieceKey(pawn, to) ^ pieceKey(captured, victim);
        key ^= k;
        st.pawnKey ^= k;
        togglePiece(pos, them, captured, victim);
        pos.board[victim] = 0;
        pos.side[them].material -= kMaterialIncrement[PAWN];
        movePiece(pos, us, pawn, from, to);
        st.fiftyStart = static_cast<uint16_t>(pos.ply);
    } else if (m & kCastleFlag) {
        const int king = pieceCode(us, KING), rook = pieceCode(us, ROOK);
        const int rookTo = (from + to) / 2, rookFrom = castleRookOrigin(rookTo);
        st.castling &= castleMask[from];
        pos.side[us].kingSquare = static_cast<uint32_t>(to);
        movePiece(pos, us, king, from, to);
        movePiece(pos, us, rook, rookFrom, rookTo);
        key ^= pieceKey(king, from) ^ pieceKey(king, to) ^ pieceKey(rook, rookFrom) ^
               pieceKey(rook, rookTo);
    } else {
        const int pawn = pieceCode(us, PAWN), promoted = pieceCode(us, promotionType(m));
        st.castling &= castleMask[from];
        if (captured) {
            togglePiece(pos, them, captured, to);
            pos.side[them].material -= kMaterialIncrement[typeOf(captured)];
            st.castling &= castleMask[to];
            key ^= pieceKey(captured, to);
        }
        key ^= pieceKey(pawn, from) ^ pieceKey(promoted, to);
        st.pawnKey ^= pieceKey(pawn, from);
        togglePiece(pos, us, pawn, from);
        togglePiece(pos, us, promoted, to);
        pos.board[from] = 0;
        pos.board[to] = static_cast<uint8_t>(promoted);
        pos.side[us].material +=
            kMaterialIncrement[promotionType(m)] - kMaterialIncrement[PAWN];
        st.fiftyStart = static_cast<uint16_t>(pos.ply);
    }

    pos.sideToMove = static_cast<uint32_t>(them);
    pos.hashKey = key ^ castleKeys[st.castling];
    pos.occupied = pos.side[WHITE].pieces[0] | pos.side[BLACK].pieces[0];
    return m;
}

// Takes back m, the last move made; `saved` is the state copied out before it was made.
inline void unmakeMove(Position& pos, Move m, const UndoState& saved) {
    using namespace detail;
    --pos.ply;
    pos.hashKey = pos.keyHistory[pos.ply];
    pos.state = saved;
    pos.sideToMove ^= 1;
    const int us = static_cast<int>(pos.sideToMove), them = us ^ 1;
    const int from = fromSquare(m), to = toSquare(m), captured = capturedCode(m);

    if (!(m & kSpecialMask)) {
        const int code = pos.board[to];
        movePiece(pos, us, code, to, from);
        if (pos.side[us].kingSquare == static_cast<uint32_t>(to))
            pos.side[us].kingSquare = static_cast<uint32_t>(from);
        if (captured) {
            togglePiece(pos, them, captured, to);
            pos.board[to] = static_cast<uint8_t>(captured);
            pos.side[them].material += kMaterialIncrement[typeOf(captured)];
        }
    } else if (m & kEnPassantFlag) {
        const int victim = to ^ 8;
        movePiece(pos, us, pieceCode(us, PAWN), to, from);
        togglePiece(pos, them, captured, victim);
        pos.board[victim] = static_cast<uint8_t>(captured);
        pos.side[them].material += kMaterialIncrement[PAWN];
    } else if (m & kCastleFlag) {
        const int rookTo = (from + to) / 2, rookFrom = castleRookOrigin(rookTo);
        movePiece(pos, us, pieceCode(us, KING), to, from);
        movePiece(pos, us, pieceCode(us, ROOK), rookTo, rookFrom);
        pos.side[us].kingSquare = static_cast<uint32_t>(from);
    } else {
        const int pawn = pieceCode(us, PAWN), promoted = pieceCode(us, promotionType(m));
        togglePiece(pos, us, promoted, to);
        togglePiece(pos, us, pawn, from);
        pos.board[from] = static_cast<uint8_t>(pawn);
        pos.board[to] = static_cast<uint8_t>(captured);
        pos.side[us].material -= kMaterialIncrement[promotionType(m)] - kMaterialIncrement[PAWN];
        if (captured) {
            togglePiece(pos, them, captured, to);
            pos.side[them].material += kMaterialIncrement[typeOf(captured)];
        }
    }
    pos.occupied = pos.side[WHITE].pieces[0] | pos.side[BLACK].pieces[0];
}

// Passes the move without touching the board, as the console's "%" does: the attack words are
// left as they were.
void makeNullMove(Position& pos);

// Plies a long game keeps when its history is trimmed: more than the fifty-move rule reads.
constexpr int kKeptHistory = 128;

// Drops the oldest history entries of a long game so that ply becomes kKeptHistory. Nothing
// the rules read is lost: repetitions are looked for back to fiftyStart only, and a game whose
// last capture or pawn move lies further back stays past the fifty-move limit. The ply count
// (and the FEN's counters) become relative to the trimmed start.
void trimHistory(Position& pos);

// Undoes the last n moves of moveHistory (0 entries as null moves), newest first, each step
// restoring the same saved state: for going back to a root whose state the caller kept.
void unmakeMoves(Position& pos, int n, const UndoState& saved);

}  // namespace quarn
