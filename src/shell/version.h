// Engine identity, printed in the banner and reported to GUIs.
#pragma once

namespace quarn {

inline constexpr char kEngineName[] = "quarn";
inline constexpr char kEngineVersion[] = "0.3a";
inline constexpr char kAuthor[] = "the quarn developers";
inline constexpr char kAttribution[] = "a UCI chess engine by the quarn developers";

}  // namespace quarn
