#include "nearest.h"

#include <algorithm>
#include <cctype>

namespace serverkit {
namespace {

constexpr size_t k_name_cost = 2; // of a name too many or too few
constexpr size_t k_too_far = 4;
constexpr size_t k_longest_name = 64;

char lower(char c) {
    return static_cast<char>(tolower(static_cast<unsigned char>(c)));
}

// Distances of the beginnings of two texts, row by row. `a` and `b` in lower case.
size_t distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1,
                                d[i - 1][j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

std::string in_lower_case(const std::string &text) {
    std::string result = text;
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

size_t cost_of_name(const std::string &written, const std::string &meant) {
    if (meant == "*")
        return written.empty() ? k_too_far : 0;
    return slips(written, meant).value_or(k_too_far);
}

struct Match {
    size_t cost = k_too_far;
    Names path;
};

Match with(Match match, size_t cost, const std::string &name) {
    match.cost += cost;
    if (!name.empty())
        match.path.push_back(name);
    return match;
}

void better(Match &best, Match match) {
    if (match.cost < best.cost)
        best = std::move(match);
}

// The cheapest way from the names written to those meant, beginning by beginning. A name that is
// missing cannot be guessed where any name will do, nor can the first or the last one of a path.
Match match_of(const Names &written, const Names &pattern) {
    std::vector<std::vector<Match>> m(written.size() + 1, std::vector<Match>(pattern.size() + 1));
    m[0][0].cost = 0;
    for (size_t i = 0; i <= written.size(); ++i)
        for (size_t j = 0; j <= pattern.size(); ++j) {
            if (i > 0 && j > 0)
                better(m[i][j], with(m[i - 1][j - 1], cost_of_name(written[i - 1], pattern[j - 1]),
                                     pattern[j - 1] == "*" ? written[i - 1] : pattern[j - 1]));
            if (i > 0)
                better(m[i][j], with(m[i - 1][j], k_name_cost, ""));
            if (j > 1 && j < pattern.size() && pattern[j - 1] != "*")
                better(m[i][j], with(m[i][j - 1], k_name_cost, pattern[j - 1]));
        }
    return m[written.size()][pattern.size()];
}

} // namespace

std::optional<size_t> slips(const std::string &written, const std::string &meant) {
    const size_t longest = std::max(written.size(), meant.size());
    if (longest > k_longest_name)
        return std::nullopt;
    const size_t count = distance(in_lower_case(written), in_lower_case(meant));
    return count <= (longest + 1) / 3 ? std::optional(count) : std::nullopt;
}

std::optional<std::string> nearest_path(const std::string &written,
                                        const std::vector<Names> &patterns) {
    constexpr size_t k_most_names = 16;
    const Names names = split_path(written);
    Match best;
    for (const Names &pattern : patterns)
        if (names.size() <= k_most_names)
            better(best, match_of(names, pattern));
    return best.path.empty() ? std::nullopt : std::optional(join_path(best.path));
}

} // namespace serverkit
