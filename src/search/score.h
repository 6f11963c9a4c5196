// The score scale shared by the search, the table and the reports: evaluation units (a pawn is
// about 100) up to the mate band; a mate found p plies from the root scores 30000 - p.
#pragma once

namespace quarn {

constexpr int kInfinity = 30000;   // wider than any score a search returns
constexpr int kMateScore = 30000;  // a mate at the root itself
// Every score beyond this is distance-dependent: the table stores it relative to its node and
// the search prunes with it as with a mate, at any depth. Mates lie near 30000; the static
// score of the most lopsided legal material (nine queens and every piece against a bare king)
// is about 12000, so every static score stays below the band and is never taken for a mate.
constexpr int kMateThreshold = 20000;
// A mate found: scores from here on are shown as mates and end an internal deepening search.
// The quiescence search's mate-in-one threat returns exactly this, a lower bound below every
// real mate score.
constexpr int kMateFound = 29000;

// The score of the side to move when it mates, or is mated, `ply` plies from the root.
constexpr int mateIn(int ply) { return kMateScore - ply; }
constexpr int matedIn(int ply) { return ply - kMateScore; }

// A score as stored at a node `ply` plies from the root: mate scores become relative to the node.
constexpr int scoreToTt(int score, int ply) {
    return score > kMateThreshold ? score + ply : score < -kMateThreshold ? score - ply : score;
}

// The reverse of scoreToTt, for an entry read at a node `ply` plies from the root.
constexpr int scoreFromTt(int score, int ply) {
    return score > kMateThreshold ? score - ply : score < -kMateThreshold ? score + ply : score;
}

// Moves to the mate for the console lines and the protocol's "score mate": the winner's count
// rounds up, the loser's down; the two formulas are the protocol's text and stay as they are.
constexpr int movesToMate(int score) { return (kMateScore + 1 - score) / 2; }
constexpr int movesToBeMated(int score) { return (kMateScore + score) / 2; }

}  // namespace quarn
