#include "board/fen.h"

#include <cstring>

#include "board/movegen.h"
#include "board/movetext.h"

namespace quarn {

namespace {

int placementType(char c) {
    const char* p = c ? std::strchr(kPieceLetters + 1, c) : nullptr;
    return p ? static_cast<int>(p - kPieceLetters) : 0;
}

int blackPlacementType(char c) {
    const char* p = c ? std::strchr(kBlackLetters + 1, c) : nullptr;
    return p ? static_cast<int>(p - kBlackLetters) : 0;
}

const char* skipBlanks(const char* p) {
    while (*p == ' ') ++p;
    return p;
}

bool attackedBy(const Position& pos, int square, int colour) {
    const SideBlock& s = pos.side[colour];
    return (pawnAttacks[colour ^ 1][square] & s.pieces[PAWN]) ||
           (knightAttacks[square] & s.pieces[KNIGHT]) || (kingAttacks[square] & s.pieces[KING]) ||
           (bishopAttacks(square, pos.occupied) & (s.pieces[BISHOP] | s.pieces[QUEEN])) ||
           (rookAttacks(square, pos.occupied) & (s.pieces[ROOK] | s.pieces[QUEEN]));
}

// Pieces beyond what promotions could have made would overflow the material word's counts,
// so they are counted on the boards.
bool materialPossible(const SideBlock& side) {
    const int pawns = popCount(side.pieces[PAWN]);
    int extra = 0;
    for (int t = KNIGHT; t <= QUEEN; ++t) {
        const int start = t == QUEEN ? 1 : 2;
        const int n = popCount(side.pieces[t]);
        if (n > start) extra += n - start;
    }
    return pawns <= 8 && extra <= 8 - pawns;
}

// Positions the board code cannot play from: the FEN grammar allows them, the generator not.
bool positionPlayable(const Position& pos) {
    static const char* const names[2] = {"white", "black"};
    for (int c = WHITE; c <= BLACK; ++c) {
        const Bitboard kings = pos.side[c].pieces[KING];
        if (!kings) {
            std::fprintf(stderr, "setFen(): no %s king\n", names[c]);
            return false;
        }
        if (moreThanOne(kings)) {
            std::fprintf(stderr, "setFen(): more than one %s king\n", names[c]);
            return false;
        }
        if (!materialPossible(pos.side[c])) {
            std::fprintf(stderr, "setFen(): too many %s pieces\n", names[c]);
            return false;
        }
    }
    if ((pos.side[WHITE].pieces[PAWN] | pos.side[BLACK].pieces[PAWN]) & (kRank1 | kRank8)) {
        std::fputs("setFen(): pawn on the first or eighth rank\n", stderr);
        return false;
    }
    const int them = static_cast<int>(pos.sideToMove) ^ 1;
    if (attackedBy(pos, static_cast<int>(pos.side[them].kingSquare), them ^ 1)) {
        std::fputs("setFen(): the side not to move is in check\n", stderr);
        return false;
    }
    return true;
}

// The en-passant pawn must be the enemy's, on its fourth rank, with the square it passed empty.
bool enPassantPlayable(const Position& pos, int square) {
    const int them = static_cast<int>(pos.sideToMove) ^ 1;
    const int rank = them == WHITE ? 3 : 4;
    const int passed = them == WHITE ? square - 8 : square + 8;
    return rankOf(square) == rank && pos.board[square] == pieceCode(them, PAWN) && !pos.board[passed];
}

struct CastleRule {
    char letter;
    uint8_t right;
    int colour;
    int kingSquare;
    int rookSquare;
};

constexpr CastleRule kCastleRules[4] = {
    {'K', WHITE_SHORT, WHITE, 4, 7},
    {'Q', WHITE_LONG, WHITE, 4, 0},
    {'k', BLACK_SHORT, BLACK, 60, 63},
    {'q', BLACK_LONG, BLACK, 60, 56},
};

}  // namespace

int setFen(Position& pos, const char* text) {
    clearPosition(pos);
    const char* p = text ? text : "";

    // Placement, rank 8 first. Ranks are not counted out, but a piece must land on the board.
    int rank = 7, file = 0;
    for (; *p && *p != ' '; ++p) {
        if (rank < 0) {
            std::fputs("fen too long\n", stderr);
            return 0;
        }
        const char c = *p;
        if (c == '/') {
            --rank;
            file = 0;
        } else if (c >= '1' && c <= '8') {
            file += c - '0';
        } else if (const int type = placementType(c) | blackPlacementType(c)) {
            if (file > 63 || rank * 8 + file > 63) {
                std::fputs("fen too long\n", stderr);
                return 0;
            }
            const int square = rank * 8 + file;
            if (pos.board[square]) {
                std::fputs("setFen(): two pieces on one square\n", stderr);
                return 0;
            }
            addPiece(pos, placementType(c) ? WHITE : BLACK, type, square);
            ++file;
        } else {
            std::fprintf(stderr, "invalid char in fen: %c\n", p[1]);
            return 0;
        }
    }

    // Side to move; without it the position stands with White to move and no rights.
    p = skipBlanks(p);
    if (*p) {
        if (*p == 'w' || *p == 'b') {
            pos.sideToMove = *p == 'b' ? BLACK : WHITE;
        } else {
            std::fprintf(stderr, "fen: invalid stm: %c\n", p[1]);
            return 0;
        }
        ++p;

        // Castling rights, each granted only with king and rook at home.
        p = skipBlanks(p);
        for (; *p; ++p) {
            if (*p == '-' || *p == ' ') {
                ++p;
                break;
            }
            const CastleRule* rule = nullptr;
            for (const CastleRule& r : kCastleRules)
                if (r.letter == *p) rule = &r;
            if (!rule) {
                std::fprintf(stderr, "setFen(): illegal castling char: %c\n", p[1]);
                return 0;
            }
            if (pos.board[rule->kingSquare] == pieceCode(rule->colour, KING) &&
                pos.board[rule->rookSquare] == pieceCode(rule->colour, ROOK))
                pos.state.castling |= rule->right;
            else
                std::fprintf(stderr, "castling %c invalid\n", rule->letter);
        }
        pos.hashKey ^= castleKeys[pos.state.castling];
    }

    // En passant, stored as the square of the pawn that made the double step.
    p = skipBlanks(p);
    if (*p) {
        const int c1 = static_cast<unsigned char>(*p++);
        if (*p) {
            const int c2 = static_cast<unsigned char>(*p++);
            if (c1 != '-') {
                int square = c1 + 8 * c2 - 489;
                if (square >= 16 && square < 24) square += 8;
                else if (square >= 40 && square < 48) square -= 8;
                if (square < 1 || square > 63 || !enPassantPlayable(pos, square)) {
                    std::fputs("setFen() invalid ep square\n", stderr);
                    return 0;
                }
                pos.state.epSquare = static_cast<uint8_t>(square);
                pos.hashKey ^= enPassantKey(square);
            }
        }
    }

    // Move counters are read past and not used.
    p = skipBlanks(p);
    while ((*p >= '0' && *p <= '9') || *p == ' ' || *p == '-') ++p;
    if (*p) std::printf("unparsed: %s\n", p);

    if (!positionPlayable(pos)) return 0;
    computeAttackInfo(pos);
    return 1;
}

SharedString getFen(const Position& pos) {
    char buf[128];
    char* out = buf;
    for (int rank = 7; rank >= 0; --rank) {
        int empty = 0;
        for (int file = 0; file < 8; ++file) {
            const int code = pos.board[makeSquare(file, rank)];
            if (!code) {
                ++empty;
                continue;
            }
            if (empty) *out++ = static_cast<char>('0' + empty);
            empty = 0;
            *out++ = colourOf(code) == WHITE ? kPieceLetters[typeOf(code)] : kBlackLetters[typeOf(code)];
        }
        if (empty) *out++ = static_cast<char>('0' + empty);
        if (rank) *out++ = '/';
    }
    *out++ = ' ';
    *out++ = pos.sideToMove == WHITE ? 'w' : 'b';
    *out++ = ' ';
    const uint8_t rights = pos.state.castling;
    if (!(rights & 15)) *out++ = '-';
    if (rights & WHITE_SHORT) *out++ = 'K';
    if (rights & WHITE_LONG) *out++ = 'Q';
    if (rights & BLACK_SHORT) *out++ = 'k';
    if (rights & BLACK_LONG) *out++ = 'q';
    *out++ = ' ';
    if (pos.state.epSquare)
        out = writeSquare(out, pos.state.epSquare);
    else
        *out++ = '-';
    std::snprintf(out, static_cast<size_t>(buf + sizeof buf - out), " %i %i",
                  static_cast<int>(pos.ply) - pos.state.fiftyStart, static_cast<int>(pos.ply));
    return SharedString::fromText(buf);
}

namespace {

constexpr char kSeparator[] = "   +---+---+---+---+---+---+---+---+";
constexpr int kShownPlies = 24;  // twelve lines of two plies beside the diagram

// Surplus pieces of one side, most valuable first.
void printSurplus(FILE* out, uint32_t mine, uint32_t theirs, const char* letters) {
    for (const int type : {QUEEN, ROOK, BISHOP, KNIGHT, PAWN})
        for (int n = materialCount(mine, type) - materialCount(theirs, type); n > 0; --n)
            std::fputc(letters[type], out);
}

}  // namespace

void printBoard(const Position& pos, FILE* out, bool debug) {
    if (!out) return;
    std::fputc('\n', out);
    const int ply = static_cast<int>(pos.ply);
    int shown = ply > kShownPlies ? ply - kShownPlies : 0;
    for (int row = 1; row <= 17; ++row) {
        const int rank = 9 - row / 2;
        if (row % 2) {
            std::fputs(kSeparator, out);
        } else {
            std::fprintf(out, " %i ", rank);
            for (int file = 0; file < 8; ++file) {
                const int code = pos.board[makeSquare(file, rank - 1)];
                if (debug)
                    std::fprintf(out, "| %2x", code);
                else if (!code)
                    std::fputs("|   ", out);
                else if (colourOf(code) == WHITE)
                    std::fprintf(out, "|(%c)", kPieceLetters[typeOf(code)]);
                else
                    std::fprintf(out, "|*%c*", kBlackLetters[typeOf(code)]);
            }
            std::fputc('|', out);
        }
        if (row >= 2 && row <= 13 && shown < ply) {
            char first[16], second[16];
            writeMoveLong(pos, first, pos.moveHistory[shown + 1]);
            std::fprintf(out, "  %2i. %-6s", shown / 2 + 1, first);
            if (shown + 1 < ply) {
                writeMoveLong(pos, second, pos.moveHistory[shown + 2]);
                std::fprintf(out, " %-6s", second);
            } else {
                std::fputs(" ...", out);
            }
            shown += 2;
        }
        if (row == 16) {
            const uint32_t w = pos.side[WHITE].material, b = pos.side[BLACK].material;
            const int wTotal = materialPoints(w) + materialCount(w, PAWN);
            const int bTotal = materialPoints(b) + materialCount(b, PAWN);
            std::fprintf(out, "  %i-%i=%i ", wTotal, bTotal, wTotal - bTotal);
            if (w != b) {
                std::fputc(' ', out);
                printSurplus(out, w, b, kPieceLetters);
                printSurplus(out, b, w, kBlackLetters);
            }
        }
        std::fputc('\n', out);
    }
    std::fputs("     a   b   c   d   e   f   g   h\n\n", out);
    SharedString fen = getFen(pos);
    std::fprintf(out, "%s\n", fen.chars());
    std::fprintf(out, " hash=%08x%08x\n", static_cast<unsigned>(pos.hashKey >> 32),
                 static_cast<unsigned>(pos.hashKey));
    std::fprintf(out, "phash=%08x%08x\n", static_cast<unsigned>(pos.state.pawnKey >> 32),
                 static_cast<unsigned>(pos.state.pawnKey));
}

}  // namespace quarn
