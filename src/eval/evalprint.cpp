#include "eval/evalprint.h"

#include <memory>

#include "eval/evaluate.h"

namespace quarn {

int printEvaluation(const Position& pos, FILE* out) {
    auto ctx = std::make_unique<EvalContext>();
    initEvalContext(*ctx, &pos);
    EvalTrace t{};
    const int score = evaluateTraced(*ctx, t);
    std::fprintf(out, "terms from White's point of view\n");
    const struct {
        const char* name;
        int value;
    } rows[] = {
        {"material", t.material},        {"pattern", t.pattern},
        {"pawns", t.pawns},              {"king white", t.kingWhite},
        {"king black", -t.kingBlack},    {"pieces white", t.piecesWhite},
        {"pieces black", -t.piecesBlack}, {"racing", t.racing},
    };
    for (const auto& row : rows) std::fprintf(out, "  %-14s %6d\n", row.name, row.value);
    std::fprintf(out, "  %-14s %6d\n", "sum", t.sum);
    std::fprintf(out, "draw rule        %s\n", t.drawRule ? t.drawRule : "none");
    std::fprintf(out, "scaling          %s\n", t.scaleRule ? t.scaleRule : "none");
    std::fprintf(out, "after rules      %6d\n", t.final);
    std::fprintf(out, "side to move     %s (tempo %d)\n", pos.sideToMove == WHITE ? "white" : "black", kTempo);
    std::fprintf(out, "eval cache       %s\n", t.cacheHit ? "hit" : "miss");
    std::fprintf(out, "pawn table       %u entries, %u hits, %u stores\n", ctx->pawnTable.count,
                 ctx->pawnTable.hits, ctx->pawnTable.stores);
    std::fprintf(out, "score %d\n", score);
    freeEvalContext(*ctx);
    return score;
}

}  // namespace quarn
