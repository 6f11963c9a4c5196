"""A UCI engine driven from a script: searches a position and reads back its score, best move
and line."""
import os
import re
import subprocess

MATE_CP = 30000
INFO = re.compile(r'\bdepth (\d+)\b.*\bscore (cp|mate) (-?\d+)( lowerbound| upperbound)?')


def install_reference(path):
    """Installs Debian's stockfish, the scripts' reference engine, when `path` is missing."""
    if not os.path.exists(path):
        subprocess.run(['apt-get', 'install', '-y', '-qq', 'stockfish'], check=True)


class Engine:
    """`argv` started in `cwd` (a quarn build writes its history file where it runs)."""

    def __init__(self, argv, options=(), cwd=None):
        self.proc = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, text=True, bufsize=1, cwd=cwd)
        self.send('uci')
        self.wait('uciok')
        for name, value in options:
            self.send(f'setoption name {name} value {value}')

    def send(self, text):
        self.proc.stdin.write(text + '\n')
        self.proc.stdin.flush()

    def wait(self, prefix):
        lines = []
        for line in self.proc.stdout:
            line = line.rstrip('\n')
            lines.append(line)
            if line.startswith(prefix):
                return lines
        raise RuntimeError(f'the engine ended before "{prefix}"')

    def new_game(self):
        self.send('ucinewgame')
        self.send('isready')
        self.wait('readyok')

    def search(self, fen, moves, go):
        """Every line the engine prints for `go` from `fen` and `moves`, up to its bestmove."""
        self.send(f'position fen {fen}' + (' moves ' + ' '.join(moves) if moves else ''))
        self.send(go)
        return self.wait('bestmove')

    def best(self, fen, moves, go):
        return self.search(fen, moves, go)[-1].split()[1]

    def score(self, fen, moves, depth, go=None):
        """Score (side to move, cp; mates as +-30000 less the distance), best move, PV, of a
        search to `depth` or of the `go` command given, in a new game."""
        self.new_game()
        score, pv = None, ''
        lines = self.search(fen, moves, go or f'go depth {depth}')
        for line in lines:
            m = INFO.search(line)
            if not m or m.group(4):
                continue
            value = int(m.group(3))
            if m.group(2) == 'mate':
                value = MATE_CP - abs(value) if value > 0 else -(MATE_CP - abs(value))
            score = value
            pv = line.split(' pv ', 1)[1] if ' pv ' in line else pv
        best = lines[-1].split()[1] if len(lines[-1].split()) > 1 else '0000'
        return score, best, pv

    def close(self):
        try:
            self.send('quit')
            self.proc.wait(timeout=5)
        except Exception:
            self.proc.kill()
