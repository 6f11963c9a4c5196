#include "board/movetext.h"

#include <cstring>

#include "board/movegen.h"

namespace quarn {

char* writeMoveLong(const Position& pos, char* buf, Move m) {
    char* out = buf;
    if (m == kNullMove) {
        *out++ = '%';
    } else if (isCastling(m)) {
        const bool kingside = fileOf(toSquare(m)) >= 4;
        std::memcpy(out, kingside ? "O-O" : "O-O-O", kingside ? 3 : 5);
        out += kingside ? 3 : 5;
    } else {
        const int from = fromSquare(m), to = toSquare(m);
        const int code = pos.board[from] ? pos.board[from] : pos.board[to];
        // Other types than pawns get their letter; an empty square (the piece has moved on
        // since) gives the table's blank.
        if (typeOf(code) != PAWN) *out++ = kPromotionLetters[typeOf(code)];
        out = writeSquare(out, from);
        if (capturedCode(m)) *out++ = 'x';
        out = writeSquare(out, to);
        if (promotionType(m)) {
            *out++ = '=';
            *out++ = kPromotionLetters[promotionType(m)];
        }
    }
    *out = 0;
    return out;
}

void printMove(const Position& pos, FILE* out, Move m) {
    char buf[kMoveTextSize];
    writeMoveLong(pos, buf, m);
    std::fputs(buf, out);
}

const char* writeMoveSan(SanWriter& writer, Move m) {
    Position& pos = writer.pos;
    char* out = writer.text;
    if (isCastling(m)) {
        // The whole square number is compared, so Black's long castling reads "O-O".
        const bool queenside = toSquare(m) <= 3;
        std::memcpy(out, queenside ? "O-O-O" : "O-O", queenside ? 6 : 4);
        return writer.text;
    }
    if (m == kNullMove) {
        std::memcpy(out, "%", 2);
        return writer.text;
    }
    const int from = fromSquare(m), to = toSquare(m), code = pos.board[from];

    // Disambiguate against other pieces of the same kind reaching the same square.
    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    bool needFile = false, needRank = false;
    for (Move* it = moves; it != end; ++it) {
        const Move other = *it;
        if (toSquare(other) != to || fromSquare(other) == from ||
            pos.board[fromSquare(other)] != code || (other & kIdentityMask) == (m & kIdentityMask))
            continue;
        if (fileOf(fromSquare(other)) == fileOf(from))
            needRank = true;
        else
            needFile = true;
    }
    const bool capture = capturedCode(m) != 0;
    if (typeOf(code) == PAWN) {
        needFile = needFile || capture;
    } else {
        *out++ = kPieceLetters[typeOf(code)];
    }
    if (needFile) *out++ = static_cast<char>('a' + fileOf(from));
    if (needRank) *out++ = static_cast<char>('1' + rankOf(from));
    if (capture) *out++ = 'x';
    out = writeSquare(out, to);
    if (promotionType(m)) {
        *out++ = '=';
        *out++ = kPromotionLetters[promotionType(m)];
    }
    *out = 0;
    return writer.text;
}

namespace {

// What the parser read, from the last character back to the first.
struct MoveText {
    int toFile = -1, toRank = -1, fromFile = -1, fromRank = -1;
    char piece = 0;      // 'P', 'N', 'B', 'R', 'Q', 'K' or open
    char promotion = 0;  // 'N', 'B', 'R', 'Q' or none
    int castles = 0;     // number of "O" read
};

bool isFile(char c) { return c >= 'a' && c <= 'h'; }

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool readMoveText(const char* text, MoveText& t) {
    const size_t length = std::strlen(text);
    for (size_t i = length; i-- > 0;) {
        const char c = text[i];
        if (std::strchr("\t\n\r !#+-=?x", c)) continue;
        // A final "b" after a coordinate move promotes to a bishop: e7e8b, but bxc3.
        const bool bishopPromotion = c == 'b' && i == length - 1 && length >= 5 && isFile(text[0]);
        if (isFile(c) && !bishopPromotion) {
            (t.toFile < 0 ? t.toFile : t.fromFile) = c - 'a';
        } else if (c >= '1' && c <= '8') {
            (t.toRank < 0 ? t.toRank : t.fromRank) = c - '1';
        } else if (c == 'K' || c == 'P') {
            t.piece = c;
        } else if (bishopPromotion || (c && std::strchr("NBRQnqr", c))) {
            if (t.toFile < 0) {
                t.promotion = upper(c);
                t.piece = 'P';
            } else {
                t.piece = upper(c);
            }
        } else if (c == 'O' || c == 'o') {
            ++t.castles;
        } else {
            std::fprintf(stderr, "illegal char in move %s: %i\n", text, static_cast<unsigned char>(c));
            return false;
        }
    }
    return true;
}

// Settles the moving piece from what was read; false when the text cannot be a move.
bool decidePiece(MoveText& t) {
    if (!t.piece) {
        if (t.castles == 2 || t.castles == 3) {
            t.piece = 'K';
            t.toFile = t.castles == 2 ? 6 : 2;
            return true;
        }
        if (t.castles) return false;
        if (t.toFile >= 0 && t.toRank >= 0 && t.fromFile >= 0 && t.fromRank >= 0) return true;
        if ((t.toFile >= 0 && t.toRank >= 0) || (t.toFile >= 0 && t.fromFile >= 0)) {
            t.piece = 'P';
            return true;
        }
        return false;
    }
    return t.toFile >= 0 && t.toRank >= 0;
}

bool matches(const Position& pos, const MoveText& t, Move m) {
    const int from = fromSquare(m), to = toSquare(m);
    if (t.piece && kPieceLetters[typeOf(pos.board[from])] != t.piece) return false;
    if (t.toFile >= 0 && fileOf(to) != t.toFile) return false;
    if (t.toRank >= 0 && rankOf(to) != t.toRank) return false;
    if (t.fromFile >= 0 && fileOf(from) != t.fromFile) return false;
    if (t.fromRank >= 0 && rankOf(from) != t.fromRank) return false;
    if (t.castles && !isCastling(m)) return false;
    if (promotionType(m)) {
        // Without a letter only the queen matches: e7e8 is e7-e8=Q.
        const char wanted = t.promotion ? t.promotion : 'Q';
        return kPromotionLetters[promotionType(m)] == wanted;
    }
    return t.promotion == 0;
}

}  // namespace

Move parseMove(Position& pos, const char* text) {
    if (!text || text[0] == '%') return kNullMove;
    MoveText t;
    if (!readMoveText(text, t) || !decidePiece(t)) return kNullMove;

    Move moves[kMaxMoves];
    Move* end = generateMoves(pos, moves);
    Move found = kNullMove;
    for (Move* it = moves; it != end; ++it) {
        if (!matches(pos, t, *it)) continue;
        if (found) {
            char first[kMoveTextSize], second[kMoveTextSize];
            writeMoveLong(pos, first, found);
            writeMoveLong(pos, second, *it);
            std::fprintf(stderr, "ambiguous move: %s _and_ %s\n", first, second);
            return kNullMove;
        }
        found = *it;
    }
    return found;
}

}  // namespace quarn
