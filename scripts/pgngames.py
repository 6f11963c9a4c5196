"""Reads the games a match wrote (PGN with a FEN tag and moves in UCI notation, each move
followed by the engine's comment "{+0.35/12 0.5s}"), for scripts/match, search-sanity and
conversion.
"""
import re

from chessrules import Pos, legal_moves, make, parse_move

TAG = re.compile(r'^\[(\w+) "(.*)"\]\s*$')
MOVE = re.compile(r'([a-h][1-8][a-h][1-8][qrbnQRBN]?)\s*\{([^}]*)\}')
SCORE = re.compile(r'^([+-]?)(M?)(\d+(?:\.\d+)?)/')
MATE_CP = 100000  # a reported mate, in centipawns


class Game:
    def __init__(self):
        self.tags = {}
        self.moves = []      # UCI move texts
        self.scores = []     # the mover's reported score in centipawns, None when unknown

    @property
    def white(self):
        return self.tags.get('White', '?')

    @property
    def black(self):
        return self.tags.get('Black', '?')

    @property
    def result(self):
        return self.tags.get('Result', '*')

    @property
    def fen(self):
        return self.tags.get('FEN', 'rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1')

    def mover(self, ply):
        """The name of the engine that played move `ply` (0-based)."""
        white_first = ' w ' in self.fen
        return self.white if (ply % 2 == 0) == white_first else self.black

    def positions(self):
        """(ply, position) before each move of the game, up to the first move that does not
        parse."""
        p = Pos.from_fen(self.fen)
        for ply, text in enumerate(self.moves):
            yield ply, p
            m = parse_move(p, legal_moves(p), text)
            if m is None:
                return
            p = make(p, m)

    def points(self, name):
        """What `name` scored in this game: 1, 0.5, 0, or None when it did not play or the game
        has no result."""
        table = {'1-0': (1.0, 0.0), '0-1': (0.0, 1.0), '1/2-1/2': (0.5, 0.5)}
        if self.result not in table:
            return None
        if name == self.white:
            return table[self.result][0]
        if name == self.black:
            return table[self.result][1]
        return None


def parse_score(comment):
    """Centipawns from a comment such as "+1.25/12 0.4s" or "-M3/20 0.1s"; None without one."""
    m = SCORE.match(comment.strip())
    if not m:
        return None
    sign = -1 if m.group(1) == '-' else 1
    if m.group(2):
        return sign * MATE_CP
    return sign * round(float(m.group(3)) * 100)


def read_games(path):
    games, game, text = [], None, []

    def finish():
        if game is None:
            return
        body = ' '.join(text)
        for move, comment in MOVE.findall(body):
            game.moves.append(move)
            game.scores.append(parse_score(comment))
        games.append(game)

    with open(path, encoding='utf-8', errors='replace') as f:
        for line in f:
            tag = TAG.match(line)
            if tag:
                if tag.group(1) == 'Event' and game is not None and (text or game.tags):
                    finish()
                    game, text = None, []
                if game is None:
                    game = Game()
                game.tags[tag.group(1)] = tag.group(2)
            elif game is not None:
                text.append(line.strip())
    finish()
    return games
