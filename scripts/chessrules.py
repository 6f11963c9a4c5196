"""The rules of chess for the test scripts: a small 0x88 move generator of our own, independent
of the engine's, that checks moves the engine sends and adjudicates finished games."""

# Board: 0x88 mailbox of one-letter pieces ('.' empty), white in upper case.

N_DIRS = (33, 31, 18, 14, -33, -31, -18, -14)
B_DIRS = (17, 15, -17, -15)
R_DIRS = (16, -16, 1, -1)
K_DIRS = B_DIRS + R_DIRS
SQUARES = [r * 16 + f for r in range(8) for f in range(8)]
# Castling rights lost when a move starts or ends on these squares.
RIGHTS_LOST = {0x04: 'KQ', 0x07: 'K', 0x00: 'Q', 0x74: 'kq', 0x77: 'k', 0x70: 'q'}


def sq_name(s):
    return 'abcdefgh'[s & 7] + str((s >> 4) + 1)


def move_text(m):
    return sq_name(m[0]) + sq_name(m[1]) + m[2]


class Pos:
    __slots__ = ('b', 'white', 'castle', 'ep', 'half', 'full', 'kings')

    @staticmethod
    def from_fen(fen):
        f = fen.split()
        p = Pos()
        p.b = ['.'] * 128
        for i, row in enumerate(f[0].split('/')):
            s = (7 - i) * 16
            for c in row:
                if c.isdigit():
                    s += int(c)
                else:
                    p.b[s] = c
                    s += 1
        p.white = f[1] == 'w'
        p.castle = '' if f[2] == '-' else f[2]
        p.ep = None if f[3] == '-' else (int(f[3][1]) - 1) * 16 + 'abcdefgh'.index(f[3][0])
        p.half = int(f[4]) if len(f) > 4 else 0
        p.full = int(f[5]) if len(f) > 5 else 1
        p.kings = [p.b.index('K'), p.b.index('k')]
        return p

    def fen(self):
        rows = []
        for r in range(7, -1, -1):
            row = ''.join(self.b[r * 16:r * 16 + 8])
            for n in range(8, 0, -1):
                row = row.replace('.' * n, str(n))
            rows.append(row)
        ep = sq_name(self.ep) if self.ep is not None else '-'
        return '%s %s %s %s %d %d' % ('/'.join(rows), 'w' if self.white else 'b',
                                      self.castle or '-', ep, self.half, self.full)


def attacked(b, s, white):
    """Is square s attacked by the pieces of the given colour?"""
    (pawn, knight, king), diag, line = ('PNK', 'BQ', 'RQ') if white else ('pnk', 'bq', 'rq')
    for t in ((s - 15, s - 17) if white else (s + 15, s + 17)):
        if not t & 0x88 and b[t] == pawn:
            return True
    for d in N_DIRS:
        if not (s + d) & 0x88 and b[s + d] == knight:
            return True
    for d in K_DIRS:
        if not (s + d) & 0x88 and b[s + d] == king:
            return True
    for dirs, sliders in ((B_DIRS, diag), (R_DIRS, line)):
        for d in dirs:
            t = s + d
            while not t & 0x88:
                if b[t] != '.':
                    if b[t] in sliders:
                        return True
                    break
                t += d
    return False


def pseudo_moves(p):
    b, white = p.b, p.white
    own = str.isupper if white else str.islower
    fwd = 16 if white else -16
    moves = []
    for s in SQUARES:
        x = b[s]
        if x == '.' or not own(x):
            continue
        t = x.upper()
        if t == 'P':
            promos = 'qrbn' if (s >> 4) == (6 if white else 1) else ''
            targets = []
            if b[s + fwd] == '.':
                targets.append(s + fwd)
                if (s >> 4) == (1 if white else 6) and b[s + 2 * fwd] == '.':
                    targets.append(s + 2 * fwd)
            for c in (s + fwd - 1, s + fwd + 1):
                if not c & 0x88 and ((b[c] != '.' and not own(b[c])) or c == p.ep):
                    targets.append(c)
            for c in targets:
                moves += [(s, c, q) for q in promos] if promos else [(s, c, '')]
        elif t in 'NK':
            for d in (N_DIRS if t == 'N' else K_DIRS):
                c = s + d
                if not c & 0x88 and (b[c] == '.' or not own(b[c])):
                    moves.append((s, c, ''))
        else:
            for d in (B_DIRS if t == 'B' else R_DIRS if t == 'R' else K_DIRS):
                c = s + d
                while not c & 0x88:
                    if b[c] != '.':
                        if not own(b[c]):
                            moves.append((s, c, ''))
                        break
                    moves.append((s, c, ''))
                    c += d
    # Castling: empty squares between, and the king's start, path and end not attacked.
    k = 0x04 if white else 0x74
    for right, empty, safe, to in (('K', (1, 2), (0, 1, 2), 2),
                                   ('Q', (-1, -2, -3), (0, -1, -2), -2)):
        if (right if white else right.lower()) in p.castle and b[k] == ('K' if white else 'k') \
                and all(b[k + e] == '.' for e in empty) \
                and not any(attacked(b, k + e, not white) for e in safe):
            moves.append((k, k + to, ''))
    return moves


def make(p, m):
    fr, to, promo = m
    b = p.b[:]
    x = b[fr]
    fwd = 16 if p.white else -16
    capture = b[to] != '.'
    b[to], b[fr] = x, '.'
    q = Pos()
    q.kings = p.kings[:]
    q.ep = None
    if x in 'Pp':
        if promo:
            b[to] = promo.upper() if p.white else promo
        if to == p.ep:
            b[to - fwd] = '.'
        if to - fr == 2 * fwd:
            q.ep = fr + fwd
    elif x in 'Kk':
        q.kings[not p.white] = to
        if to - fr in (2, -2):
            rook_from, rook_to = (fr + 3, fr + 1) if to > fr else (fr - 4, fr - 1)
            b[rook_to], b[rook_from] = b[rook_from], '.'
    q.b, q.white = b, not p.white
    q.castle = ''.join(c for c in p.castle
                       if c not in RIGHTS_LOST.get(fr, '') + RIGHTS_LOST.get(to, ''))
    q.half = 0 if capture or x in 'Pp' else p.half + 1
    q.full = p.full + (not p.white)
    return q


def pinned_pieces(p):
    """Squares of the side to move's pieces pinned to its king."""
    b, k = p.b, p.kings[not p.white]
    own = str.isupper if p.white else str.islower
    enemy_diag, enemy_line = ('bq', 'rq') if p.white else ('BQ', 'RQ')
    pinned = set()
    for dirs, sliders in ((B_DIRS, enemy_diag), (R_DIRS, enemy_line)):
        for d in dirs:
            t, shield = k + d, None
            while not t & 0x88:
                if b[t] != '.':
                    if shield is None and own(b[t]):
                        shield = t
                    else:
                        if shield is not None and b[t] in sliders:
                            pinned.add(shield)
                        break
                t += d
    return pinned


def legal_moves(p):
    """Pseudo-legal moves that leave the king safe. Outside check, a move of an unpinned piece
    other than the king and other than en passant cannot expose the king, so only the rest is
    played out on a copy."""
    in_check = attacked(p.b, p.kings[not p.white], not p.white)
    pinned = pinned_pieces(p)
    legal = []
    for m in pseudo_moves(p):
        x = p.b[m[0]]
        if not in_check and m[0] not in pinned and x not in 'Kk' \
                and not (x in 'Pp' and m[1] == p.ep):
            legal.append(m)
            continue
        q = make(p, m)
        if not attacked(q.b, q.kings[not p.white], q.white):
            legal.append(m)
    return legal


def perft(p, depth):
    moves = legal_moves(p)
    if depth == 1:
        return len(moves)
    return sum(perft(make(p, m), depth - 1) for m in moves)


def in_check(p):
    return attacked(p.b, p.kings[not p.white], not p.white)


def repetition_key(p, moves):
    # The en-passant square only makes a different position when the capture can be played.
    ep = p.ep if any(m[1] == p.ep and p.b[m[0]] in 'Pp' for m in moves) else None
    return (''.join(p.b), p.white, p.castle, ep)


def insufficient_material(p):
    rest = sorted(x for x in p.b if x not in '.Kk')
    return not rest or (len(rest) == 1 and rest[0] in 'NBnb')


def adjudicate(p, moves, keys):
    """Result ('1-0', '0-1', '1/2-1/2') and reason once the game is over, else None. moves are the
    legal moves of p; keys the repetition keys of every position of the game, p's included."""
    if not moves:
        if in_check(p):
            return ('0-1' if p.white else '1-0'), 'checkmate'
        return '1/2-1/2', 'stalemate'
    if insufficient_material(p):
        return '1/2-1/2', 'insufficient material'
    if p.half >= 100:
        return '1/2-1/2', 'fifty-move rule'
    if keys.count(keys[-1]) >= 3:
        return '1/2-1/2', 'threefold repetition'
    return None


def piece_count(p):
    """Knights, bishops, rooks and queens on the board, both sides together."""
    return sum(1 for x in p.b if x in 'NBRQnbrq')


def parse_move(p, moves, text):
    """The legal move written as text (coordinates, promotion letter in either case) or None."""
    for m in moves:
        if move_text(m) == text[:4] + text[4:].lower():
            return m
    return None
