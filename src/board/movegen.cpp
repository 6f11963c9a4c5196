#include "board/movegen.h"

namespace quarn {

namespace {

template <int Us>
struct Dir {
    static constexpr int up = Us == WHITE ? 8 : -8;
    static constexpr int leftCapture = Us == WHITE ? 7 : -9;  // towards the a-file
    static constexpr int rightCapture = Us == WHITE ? 9 : -7;  // towards the h-file
    static constexpr Bitboard startRank = Us == WHITE ? 0xFF00ULL : 0xFF000000000000ULL;
    static constexpr Bitboard sixthRank = Us == WHITE ? 0xFF0000000000ULL : 0xFF0000ULL;
    static constexpr Bitboard seventhRank = Us == WHITE ? 0xFF000000000000ULL : 0xFF00ULL;
    static constexpr Bitboard lastRank = Us == WHITE ? kRank8 : kRank1;

    static Bitboard forward(Bitboard b) { return Us == WHITE ? b << 8 : b >> 8; }
    static Bitboard backward(Bitboard b) { return Us == WHITE ? b >> 8 : b << 8; }
    static Bitboard leftTargets(Bitboard p) { return Us == WHITE ? (p & kNotFileA) << 7 : (p & kNotFileA) >> 9; }
    static Bitboard rightTargets(Bitboard p) { return Us == WHITE ? (p & kNotFileH) << 9 : (p & kNotFileH) >> 7; }
};

// Writes one move per target square, all from `from`.
inline Move* spread(const Position& pos, Move* list, int from, Bitboard targets) {
    while (targets) {
        const int to = popLsb(targets);
        *list++ = makeMoveWord(from, to, pos.board[to]);
    }
    return list;
}

// Pawn moves from a set of targets reached by one fixed step.
inline Move* pawnMovesByStep(const Position& pos, Move* list, Bitboard targets, int step) {
    while (targets) {
        const int to = popLsb(targets);
        list = addPawnMove(list, makeMoveWord(to - step, to, pos.board[to]));
    }
    return list;
}

template <int Colour>
Bitboard blockersOfT(const Position& pos) {
    constexpr int them = Colour ^ 1;
    const int ksq = static_cast<int>(pos.side[Colour].kingSquare);
    const SideBlock& t = pos.side[them];
    Bitboard snipers = (rookLines[ksq] & (t.pieces[ROOK] | t.pieces[QUEEN])) |
                       (bishopLines[ksq] & (t.pieces[BISHOP] | t.pieces[QUEEN]));
    Bitboard blockers = 0;
    while (snipers) {
        const Bitboard b = between[ksq][popLsb(snipers)] & pos.occupied;
        if (b && !moreThanOne(b)) blockers |= b;
    }
    return blockers;
}

template <int Us>
void computeAttackInfoT(Position& pos) {
    constexpr int them = Us ^ 1;
    const SideBlock& t = pos.side[them];
    const Bitboard occ = pos.occupied ^ pos.side[Us].pieces[KING];
    Bitboard attacks = pawnAttackSet<them>(t.pieces[PAWN]) | kingAttacks[t.kingSquare];
    for (Bitboard b = t.pieces[KNIGHT]; b;) attacks |= knightAttacks[popLsb(b)];
    for (Bitboard b = t.pieces[BISHOP] | t.pieces[QUEEN]; b;) attacks |= bishopAttacks(popLsb(b), occ);
    for (Bitboard b = t.pieces[ROOK] | t.pieces[QUEEN]; b;) attacks |= rookAttacks(popLsb(b), occ);
    pos.state.enemyAttacks = attacks;
    pos.state.kingBlockers[WHITE] = blockersOfT<WHITE>(pos);
    pos.state.kingBlockers[BLACK] = blockersOfT<BLACK>(pos);
}

// En passant by the pawn on `from`, legal when lifting both pawns and filling the target square
// opens no slider line onto our king.
template <int Us>
Move* enPassantIfSafe(const Position& pos, Move* list, int from) {
    constexpr int them = Us ^ 1;
    const int ep = pos.state.epSquare, to = ep + Dir<Us>::up;
    const int ksq = static_cast<int>(pos.side[Us].kingSquare);
    const SideBlock& t = pos.side[them];
    const Bitboard occ = (pos.occupied ^ squareBit[ep] ^ squareBit[from]) | squareBit[to];
    if ((rookAttacks(ksq, occ) & (t.pieces[ROOK] | t.pieces[QUEEN])) ||
        (bishopAttacks(ksq, occ) & (t.pieces[BISHOP] | t.pieces[QUEEN])))
        return list;
    *list++ = makeMoveWord(from, to, pieceCode(them, PAWN)) | kEnPassantFlag;
    return list;
}

template <int Us>
Move* generateAllT(const Position& pos, Move* list) {
    using D = Dir<Us>;
    constexpr int them = Us ^ 1;
    const SideBlock& s = pos.side[Us];
    const Bitboard own = s.pieces[0], enemy = pos.side[them].pieces[0], occ = pos.occupied;
    const Bitboard empty = ~occ;
    const int ksq = static_cast<int>(s.kingSquare);
    const Bitboard pinned = pos.state.kingBlockers[Us] & own;
    const int ownPawn = pieceCode(Us, PAWN);

    // 1. Pinned pawns move only along their pin line.
    for (Bitboard b = s.pieces[PAWN] & pinned; b;) {
        const int from = popLsb(b);
        const Bitboard pin = line[ksq][from];
        const int push = from + D::up;
        if ((pin & squareBit[push]) && !pos.board[push]) {
            list = addPawnMove(list, makeMoveWord(from, push, 0));
            if ((D::startRank & squareBit[from]) && !pos.board[push + D::up])
                *list++ = makeMoveWord(from, push + D::up, 0) | kDoubleStepFlag;
        }
        for (Bitboard t = pawnAttacks[Us][from] & pin & enemy; t;) {
            const int to = popLsb(t);
            list = addPawnMove(list, makeMoveWord(from, to, pos.board[to]));
        }
    }

    // 2. En passant, from the left neighbour first.
    if (const int ep = pos.state.epSquare) {
        if (fileOf(ep) > 0 && pos.board[ep - 1] == ownPawn) list = enPassantIfSafe<Us>(pos, list, ep - 1);
        if (fileOf(ep) < 7 && pos.board[ep + 1] == ownPawn) list = enPassantIfSafe<Us>(pos, list, ep + 1);
    }

    // 3. Castling, short before long; the rights guarantee king and rook at home.
    const uint8_t rights = pos.state.castling;
    const Bitboard attacked = pos.state.enemyAttacks;
    constexpr uint8_t shortRight = Us == WHITE ? WHITE_SHORT : BLACK_SHORT;
    constexpr uint8_t longRight = Us == WHITE ? WHITE_LONG : BLACK_LONG;
    constexpr Bitboard shortPath = Us == WHITE ? 0x60ULL : 0x60ULL << 56;
    constexpr Bitboard longEmpty = Us == WHITE ? 0x0EULL : 0x0EULL << 56;
    constexpr Bitboard longSafe = Us == WHITE ? 0x0CULL : 0x0CULL << 56;
    if ((rights & shortRight) && !(occ & shortPath) && !(attacked & shortPath))
        *list++ = makeMoveWord(ksq, ksq + 2, 0) | kCastleFlag;
    if ((rights & longRight) && !(occ & longEmpty) && !(attacked & longSafe))
        *list++ = makeMoveWord(ksq, ksq - 2, 0) | kCastleFlag;

    // 4. Unpinned pawn captures, towards the a-file first.
    const Bitboard pawns = s.pieces[PAWN] & ~pinned;
    list = pawnMovesByStep(pos, list, D::leftTargets(pawns) & enemy, D::leftCapture);
    list = pawnMovesByStep(pos, list, D::rightTargets(pawns) & enemy, D::rightCapture);

    // 5. Unpinned pushes: promotions first, then each double step right before its single step.
    const Bitboard single = D::forward(pawns) & empty;
    list = pawnMovesByStep(pos, list, single & D::lastRank, D::up);
    for (Bitboard b = single & ~D::lastRank; b;) {
        const int to = popLsb(b), from = to - D::up;
        if ((D::startRank & squareBit[from]) && !pos.board[to + D::up])
            *list++ = makeMoveWord(from, to + D::up, 0) | kDoubleStepFlag;
        *list++ = makeMoveWord(from, to, 0);
    }

    // 6. Knights (a pinned knight never moves).
    for (Bitboard b = s.pieces[KNIGHT] & ~pinned; b;) {
        const int from = popLsb(b);
        list = spread(pos, list, from, knightAttacks[from] & ~own);
    }

    // 7-8. Sliders by direction; queens take part in both passes.
    for (Bitboard b = s.pieces[BISHOP] | s.pieces[QUEEN]; b;) {
        const int from = popLsb(b);
        Bitboard targets = bishopAttacks(from, occ) & ~own;
        if (pinned & squareBit[from]) targets &= line[ksq][from];
        list = spread(pos, list, from, targets);
    }
    for (Bitboard b = s.pieces[ROOK] | s.pieces[QUEEN]; b;) {
        const int from = popLsb(b);
        Bitboard targets = rookAttacks(from, occ) & ~own;
        if (pinned & squareBit[from]) targets &= line[ksq][from];
        list = spread(pos, list, from, targets);
    }

    // 9. King.
    return spread(pos, list, ksq,
                  kingAttacks[ksq] & ~own & ~attacked & ~kingAttacks[pos.side[them].kingSquare]);
}

template <int Us>
Move* generateEvasionsT(const Position& pos, Move* list) {
    using D = Dir<Us>;
    constexpr int them = Us ^ 1;
    const SideBlock& s = pos.side[Us];
    const SideBlock& t = pos.side[them];
    const Bitboard own = s.pieces[0], occ = pos.occupied;
    const int ksq = static_cast<int>(s.kingSquare);

    // 1. King steps.
    list = spread(pos, list, ksq, kingAttacks[ksq] & ~own & ~pos.state.enemyAttacks);

    // 2. Checkers; against two only the king can move.
    const Bitboard checkers = (pawnAttacks[Us][ksq] & t.pieces[PAWN]) |
                              (knightAttacks[ksq] & t.pieces[KNIGHT]) |
                              (bishopAttacks(ksq, occ) & (t.pieces[BISHOP] | t.pieces[QUEEN])) |
                              (rookAttacks(ksq, occ) & (t.pieces[ROOK] | t.pieces[QUEEN]));
    if (!checkers || moreThanOne(checkers)) return list;
    const int checker = lsbIndex(checkers);

    // 3. Capture the checker or block its line; pinned pieces never move here.
    const Bitboard target = checkers | between[ksq][checker];
    const Bitboard free = ~pos.state.kingBlockers[Us];

    // 4. Pieces.
    for (Bitboard b = s.pieces[KNIGHT] & free; b;) {
        const int from = popLsb(b);
        list = spread(pos, list, from, knightAttacks[from] & target);
    }
    for (Bitboard b = (s.pieces[BISHOP] | s.pieces[QUEEN]) & free; b;) {
        const int from = popLsb(b);
        list = spread(pos, list, from, bishopAttacks(from, occ) & target);
    }
    for (Bitboard b = (s.pieces[ROOK] | s.pieces[QUEEN]) & free; b;) {
        const int from = popLsb(b);
        list = spread(pos, list, from, rookAttacks(from, occ) & target);
    }

    // 5. Pawns: blocking pushes, blocking double steps, then captures of the checker.
    const Bitboard pawns = s.pieces[PAWN] & free;
    const Bitboard blocks = target & ~checkers;
    list = pawnMovesByStep(pos, list, D::forward(pawns) & blocks, D::up);
    for (Bitboard b = D::forward(D::forward(pawns & D::startRank) & ~occ) & blocks; b;) {
        const int to = popLsb(b);
        *list++ = makeMoveWord(to - 2 * D::up, to, 0) | kDoubleStepFlag;
    }
    const int checkerCode = pos.board[checker];
    for (Bitboard b = pawnAttacks[them][checker] & pawns; b;) {
        const Move m = makeMoveWord(popLsb(b), checker, checkerCode);
        if (D::lastRank & squareBit[checker]) {
            // Promotions by capture come Q, N, R, B here, unlike pushes.
            *list++ = withPromotion(m, QUEEN);
            *list++ = withPromotion(m, KNIGHT);
            *list++ = withPromotion(m, ROOK);
            *list++ = withPromotion(m, BISHOP);
        } else {
            *list++ = m;
        }
    }

    // 6. En passant when the checker is the pawn that just made its double step. The full
    // slider test of the ordinary case: a position set up by FEN may have the captured pawn
    // shielding the king from a bishop, which no game reaches.
    const int ep = pos.state.epSquare;
    if (ep && ep == checker) {
        const int ownPawn = pieceCode(Us, PAWN);
        const bool hasLeft = fileOf(ep) > 0, hasRight = fileOf(ep) < 7;
        for (const int from : {ep - 1, ep + 1}) {
            if (!(from < ep ? hasLeft : hasRight) || pos.board[from] != ownPawn) continue;
            list = enPassantIfSafe<Us>(pos, list, from);
        }
    }
    return list;
}

template <int Us>
Move* generateCapturesT(const Position& pos, Move* list, int margin) {
    using D = Dir<Us>;
    constexpr int them = Us ^ 1;
    const SideBlock& s = pos.side[Us];
    const SideBlock& t = pos.side[them];
    const Bitboard enemy = t.pieces[0], occ = pos.occupied, empty = ~occ;
    const int ksq = static_cast<int>(s.kingSquare);
    const Bitboard pinned = pos.state.kingBlockers[Us] & s.pieces[0];

    // Victims worth at least the margin; a pawn about to promote counts as a queen.
    constexpr Bitboard theirSeventh = Dir<them>::seventhRank;
    Bitboard victims = 0;
    if (margin < 11) {
        victims = t.pieces[QUEEN] | (t.pieces[PAWN] & theirSeventh);
        if (margin < 6) victims |= t.pieces[ROOK];
        if (margin < 4) victims |= t.pieces[BISHOP] | t.pieces[KNIGHT];
        if (margin < 2) victims |= t.pieces[PAWN];
    }

    const Bitboard pawns = s.pieces[PAWN] & ~pinned;
    const Bitboard onSeventh = pawns & D::seventhRank;

    // 1. Quiet pushes to the seventh rank with a free path to promotion.
    for (Bitboard b = D::forward(pawns & D::sixthRank) & empty & D::backward(empty); b;) {
        const int to = popLsb(b);
        *list++ = makeMoveWord(to - D::up, to, 0);
    }

    // 2. Pinned pawns capture along their pin diagonal only.
    for (Bitboard b = s.pieces[PAWN] & pinned; b;) {
        const int from = popLsb(b);
        Bitboard targets = pawnAttacks[Us][from] & line[ksq][from] & enemy;
        while (targets) {
            const int to = popLsb(targets);
            Move m = makeMoveWord(from, to, pos.board[to]);
            *list++ = (D::lastRank & squareBit[to]) ? withPromotion(m, QUEEN) : m;
        }
    }

    // 3. Pawns on the seventh: captures of anything, then the push, as queen promotions.
    for (Bitboard b = D::leftTargets(onSeventh) & enemy; b;) {
        const int to = popLsb(b);
        *list++ = withPromotion(makeMoveWord(to - D::leftCapture, to, pos.board[to]), QUEEN);
    }
    for (Bitboard b = D::rightTargets(onSeventh) & enemy; b;) {
        const int to = popLsb(b);
        *list++ = withPromotion(makeMoveWord(to - D::rightCapture, to, pos.board[to]), QUEEN);
    }
    for (Bitboard b = D::forward(onSeventh) & empty; b;) {
        const int to = popLsb(b);
        *list++ = withPromotion(makeMoveWord(to - D::up, to, 0), QUEEN);
    }

    // 4. Other pawn captures of victims.
    const Bitboard others = pawns & ~D::seventhRank;
    list = pawnMovesByStep(pos, list, D::leftTargets(others) & victims, D::leftCapture);
    list = pawnMovesByStep(pos, list, D::rightTargets(others) & victims, D::rightCapture);

    // 5-8. Pieces onto victims; pinned sliders stay on their pin line.
    for (Bitboard b = s.pieces[KNIGHT] & ~pinned; b;) {
        const int from = popLsb(b);
        list = spread(pos, list, from, knightAttacks[from] & victims);
    }
    for (Bitboard b = s.pieces[BISHOP]; b;) {
        const int from = popLsb(b);
        Bitboard targets = bishopAttacks(from, occ) & victims;
        if (pinned & squareBit[from]) targets &= line[ksq][from];
        list = spread(pos, list, from, targets);
    }
    for (Bitboard b = s.pieces[ROOK]; b;) {
        const int from = popLsb(b);
        Bitboard targets = rookAttacks(from, occ) & victims;
        if (pinned & squareBit[from]) targets &= line[ksq][from];
        list = spread(pos, list, from, targets);
    }
    for (Bitboard b = s.pieces[QUEEN]; b;) {
        const int from = popLsb(b);
        Bitboard targets = queenAttacks(from, occ) & victims;
        if (pinned & squareBit[from]) targets &= line[ksq][from];
        list = spread(pos, list, from, targets);
    }

    // 9. King captures onto safe squares.
    return spread(pos, list, ksq,
                  kingAttacks[ksq] & victims & ~pos.state.enemyAttacks & ~kingAttacks[t.kingSquare]);
}

// The king on its home square, the right for that side and the squares between king and rook
// empty. Attacks are left to the caller.
bool castlingPossible(const Position& pos, int from, int to) {
    const int us = static_cast<int>(pos.sideToMove);
    const int home = us == WHITE ? 4 : 60;
    if (from != home || (to != home + 2 && to != home - 2)) return false;
    const bool shortSide = to > from;
    const uint8_t right = us == WHITE ? (shortSide ? WHITE_SHORT : WHITE_LONG) : (shortSide ? BLACK_SHORT : BLACK_LONG);
    const Bitboard path = shortSide ? (0x60ULL << (us == WHITE ? 0 : 56)) : (0x0EULL << (us == WHITE ? 0 : 56));
    return (pos.state.castling & right) && !(pos.occupied & path);
}

}  // namespace

void computeAttackInfo(Position& pos) {
    if (pos.sideToMove == WHITE)
        computeAttackInfoT<WHITE>(pos);
    else
        computeAttackInfoT<BLACK>(pos);
}

Bitboard blockersOf(const Position& pos, int colour) {
    return colour == WHITE ? blockersOfT<WHITE>(pos) : blockersOfT<BLACK>(pos);
}

Move* generateAll(const Position& pos, Move* list) {
    return pos.sideToMove == WHITE ? generateAllT<WHITE>(pos, list) : generateAllT<BLACK>(pos, list);
}

Move* generateEvasions(const Position& pos, Move* list) {
    return pos.sideToMove == WHITE ? generateEvasionsT<WHITE>(pos, list)
                                   : generateEvasionsT<BLACK>(pos, list);
}

Move* generateCaptures(const Position& pos, Move* list, int margin) {
    return pos.sideToMove == WHITE ? generateCapturesT<WHITE>(pos, list, margin)
                                   : generateCapturesT<BLACK>(pos, list, margin);
}

Move* generateMoves(Position& pos, Move* list) {
    if (pos.sideToMove == WHITE) {
        computeAttackInfoT<WHITE>(pos);
        return inCheck(pos) ? generateEvasionsT<WHITE>(pos, list) : generateAllT<WHITE>(pos, list);
    }
    computeAttackInfoT<BLACK>(pos);
    return inCheck(pos) ? generateEvasionsT<BLACK>(pos, list) : generateAllT<BLACK>(pos, list);
}

bool isValidMove(const Position& pos, Move m) {
    const int us = static_cast<int>(pos.sideToMove);
    const int from = fromSquare(m), to = toSquare(m), captured = capturedCode(m);
    if (from > 63 || to > 63) return false;
    int piece = pos.board[from];
    // 1. Our piece on the from square.
    if (!piece || colourOf(piece) != us) return false;
    int type = typeOf(piece);
    const int ksq = static_cast<int>(pos.side[us].kingSquare);

    // 2. Special moves; en passant needs the enemy pawn that just made its double step.
    if (m & kSpecialMask) {
        if (m & kEnPassantFlag) {
            const int ep = pos.state.epSquare;
            if (type != PAWN || !ep || ep != to - (us == WHITE ? 8 : -8) ||
                pos.board[ep] != pieceCode(us ^ 1, PAWN))
                return false;
        } else if (promotionType(m)) {
            // Stricter than a quick filter needs to be: a promotion whose captured field does not
            // match the board would make a phantom piece appear or vanish.
            if (type != PAWN || pos.board[to] != captured || !(squareBit[to] & (kRank1 | kRank8)))
                return false;
        } else if (isCastling(m) && !castlingPossible(pos, from, to)) {
            // Likewise a castling move the position does not allow would move a phantom rook.
            return false;
        }
    } else if (pos.board[to] != captured) {
        // 3. The captured field must match the board exactly.
        return false;
    }

    // 4. The piece's own move rule.
    switch (type) {
        case PAWN:
            // Deliberately loose: quiet targets other than an unflagged double step pass.
            if (captured) {
                if (!(pawnAttacks[us][from] & squareBit[to])) return false;
            } else if (pos.board[to] || (to == from + (us == WHITE ? 16 : -16) && !isDoubleStep(m))) {
                return false;
            }
            break;
        case KNIGHT:
            if (!(knightAttacks[from] & squareBit[to])) return false;
            break;
        case BISHOP:
            if (!(bishopAttacks(from, pos.occupied) & squareBit[to])) return false;
            break;
        case ROOK:
            if (!(rookAttacks(from, pos.occupied) & squareBit[to])) return false;
            break;
        case QUEEN:
            if (!(queenAttacks(from, pos.occupied) & squareBit[to])) return false;
            break;
        case KING:
            if (!isCastling(m) && !(kingAttacks[from] & squareBit[to])) return false;
            return !(pos.state.enemyAttacks & squareBit[to]);
        default:
            return false;
    }

    // 5. In check a capture must take a piece that gives the check.
    if ((pos.state.enemyAttacks & squareBit[ksq]) && captured) {
        switch (typeOf(captured)) {
            case KNIGHT:
                if (!(knightAttacks[to] & squareBit[ksq])) return false;
                break;
            case BISHOP:
                if (!(bishopAttacks(to, pos.occupied) & squareBit[ksq])) return false;
                break;
            case ROOK:
                if (!(rookAttacks(to, pos.occupied) & squareBit[ksq])) return false;
                break;
            case QUEEN:
                if (!(queenAttacks(to, pos.occupied) & squareBit[ksq])) return false;
                break;
            default:
                break;
        }
    }

    // 6. A pinned piece stays on its pin line.
    if (pos.state.kingBlockers[us] & squareBit[from]) return (line[from][ksq] & squareBit[to]) != 0;
    return true;
}

}  // namespace quarn
