#include "board/position.h"

#include <cstring>

namespace quarn {

uint64_t castleKeys[16];

void initCastleKeys() {
    for (int r = 0; r < 16; ++r) {
        castleKeys[r] = 0;
        for (int b = 0; b < 4; ++b)
            if (r & (1 << b)) castleKeys[r] ^= zobrist[8 + b];
    }
}

void clearPosition(Position& pos) { std::memset(&pos, 0, sizeof pos); }

void copyPosition(Position& dst, const Position& src) {
    std::memcpy(&dst, &src, offsetof(Position, moveHistory));
    const size_t n = src.ply + 1;
    std::memcpy(dst.moveHistory, src.moveHistory, n * sizeof(Move));
    std::memcpy(dst.keyHistory, src.keyHistory, n * sizeof(uint64_t));
}

uint32_t addPiece(Position& pos, int colour, int type, int square) {
    const int code = pieceCode(colour, type);
    SideBlock& s = pos.side[colour];
    s.pieces[0] |= squareBit[square];
    s.pieces[type] |= squareBit[square];
    pos.board[square] = static_cast<uint8_t>(code);
    pos.occupied |= squareBit[square];
    pos.hashKey ^= pieceKey(code, square);
    if (type == PAWN) pos.state.pawnKey ^= pieceKey(code, square);
    if (type == KING) s.kingSquare = static_cast<uint32_t>(square);
    s.material += kMaterialIncrement[type];
    return s.material;
}

uint64_t computeHashKey(const Position& pos) {
    uint64_t key = castleKeys[pos.state.castling & 15];
    for (int s = 0; s < 64; ++s)
        if (pos.board[s]) key ^= pieceKey(pos.board[s], s);
    if (pos.state.epSquare) key ^= enPassantKey(pos.state.epSquare);
    return key;
}

uint64_t computePawnKey(const Position& pos) {
    uint64_t key = 0;
    for (int s = 0; s < 64; ++s)
        if (typeOf(pos.board[s]) == PAWN) key ^= pieceKey(pos.board[s], s);
    return key;
}

uint32_t computeMaterial(const Position& pos, int colour) {
    uint32_t m = 0;
    for (int s = 0; s < 64; ++s)
        if (pos.board[s] && colourOf(pos.board[s]) == colour) m += kMaterialIncrement[typeOf(pos.board[s])];
    return m;
}

bool positionOk(const Position& pos) {
    Bitboard all[2] = {0, 0};
    for (int c = 0; c < 2; ++c) {
        Bitboard byType = 0;
        for (int t = PAWN; t <= KING; ++t) {
            if (pos.side[c].pieces[t] & byType) return false;
            byType |= pos.side[c].pieces[t];
            for (Bitboard b = pos.side[c].pieces[t]; b; b &= b - 1)
                if (pos.board[lsbIndex(b)] != pieceCode(c, t)) return false;
        }
        if (byType != pos.side[c].pieces[0]) return false;
        all[c] = byType;
        if (pos.side[c].pieces[KING] != squareBit[pos.side[c].kingSquare & 63]) return false;
        if (pos.side[c].material != computeMaterial(pos, c)) return false;
    }
    if (all[WHITE] & all[BLACK]) return false;
    if (pos.occupied != (all[WHITE] | all[BLACK])) return false;
    for (int s = 0; s < 64; ++s)
        if (!pos.board[s] != !(pos.occupied & squareBit[s])) return false;
    return pos.hashKey == computeHashKey(pos) && pos.state.pawnKey == computePawnKey(pos);
}

void makeNullMove(Position& pos) {
    pos.keyHistory[pos.ply] = pos.hashKey;
    if (pos.state.epSquare) pos.hashKey ^= enPassantKey(pos.state.epSquare);
    ++pos.ply;
    pos.state.fiftyStart = static_cast<uint16_t>(pos.ply);
    pos.moveHistory[pos.ply] = kNullMove;
    pos.state.epSquare = 0;
    pos.sideToMove ^= 1;
}

void trimHistory(Position& pos) {
    if (pos.ply <= static_cast<uint32_t>(kKeptHistory)) return;
    const uint32_t shift = pos.ply - kKeptHistory;
    std::memmove(pos.moveHistory, pos.moveHistory + shift, (kKeptHistory + 1) * sizeof(Move));
    std::memmove(pos.keyHistory, pos.keyHistory + shift, (kKeptHistory + 1) * sizeof(uint64_t));
    pos.ply = kKeptHistory;
    pos.state.fiftyStart = pos.state.fiftyStart > shift ? static_cast<uint16_t>(pos.state.fiftyStart - shift) : 0;
}

void unmakeMoves(Position& pos, int n, const UndoState& saved) {
    for (; n > 0 && pos.ply > 0; --n) {
        const Move m = pos.moveHistory[pos.ply];
        if (m) {
            unmakeMove(pos, m, saved);
        } else {
            --pos.ply;
            pos.hashKey = pos.keyHistory[pos.ply];
            pos.state = saved;
            pos.sideToMove ^= 1;
        }
    }
}

}  // namespace quarn
