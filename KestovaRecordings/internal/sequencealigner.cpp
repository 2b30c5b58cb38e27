#include "KestovaRecordings/internal/sequencealigner.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace recordings
{
namespace
{
constexpr std::ptrdiff_t cNowhere = -1;

struct tNumbering
{
    std::uint32_t number = 0;
    bool inB = false;
};
}  // namespace

// The furthest reaching paths in a box from one of its corners. Seen from the far corner the box is turned round, so
// that both directions go on alike: places count from the corner.
class tSequenceAligner::tPaths
{
public:
    tPaths(std::vector<std::ptrdiff_t>& furthest, std::ptrdiff_t width, std::ptrdiff_t height)
        : m_furthest(furthest), m_width(width), m_height(height)
    {
        const auto size = static_cast<std::size_t>(width + height + 3);
        if (m_furthest.size() < size)
            m_furthest.resize(size);
        at(0) = cNowhere;
        at(-1) = at(1) = cNowhere;
    }

    // Goes one difference further on every diagonal, then along equal messages. Returns true as soon as `meets` does
    // for a diagonal and its place.
    template <typename tEqual, typename tMeets>
    bool step(std::ptrdiff_t differences, tEqual equal, tMeets meets)
    {
        const std::ptrdiff_t lowest = lowestOf(differences), highest = highestOf(differences);
        if (differences < m_width + 1)
            at(std::min(differences + 1, m_width + 1)) = cNowhere;
        if (differences < m_height + 1)
            at(std::max(-differences - 1, -m_height - 1)) = cNowhere;
        for (std::ptrdiff_t diagonal = lowest; diagonal <= highest; diagonal += 2)
        {
            std::ptrdiff_t x = differences == 0 ? 0 : furthestFrom(diagonal);
            if (x != cNowhere)
                while (x < m_width && x - diagonal < m_height && equal(x, x - diagonal))
                    ++x;
            at(diagonal) = x;
            if (x != cNowhere && meets(diagonal, x))
                return true;
        }
        return false;
    }
    std::ptrdiff_t operator[](std::ptrdiff_t diagonal) const
    {
        return m_furthest[static_cast<std::size_t>(diagonal + m_height + 1)];
    }
    // Whether a diagonal has been reached with so many differences, or one fewer.
    bool has(std::ptrdiff_t diagonal, std::ptrdiff_t differences) const
    {
        return diagonal >= -m_height && diagonal <= m_width && diagonal >= -differences && diagonal <= differences;
    }
    // Returns the place that is furthest from the corner, of those with so many differences.
    tPlace best(std::ptrdiff_t differences) const
    {
        tPlace found{0, 0};
        for (std::ptrdiff_t d = lowestOf(differences); d <= highestOf(differences); d += 2)
            if (const std::ptrdiff_t x = (*this)[d]; x != cNowhere && 2 * x - d > found.a + found.b)
                found = {x, x - d};
        return found;
    }

private:
    std::ptrdiff_t& at(std::ptrdiff_t diagonal)
    {
        return m_furthest[static_cast<std::size_t>(diagonal + m_height + 1)];
    }
    // Diagonals outside the box are left out; those of a step have the parity of its differences.
    std::ptrdiff_t lowestOf(std::ptrdiff_t differences) const
    {
        return differences <= m_height ? -differences : -m_height + ((differences - m_height) & 1);
    }
    std::ptrdiff_t highestOf(std::ptrdiff_t differences) const
    {
        return differences <= m_width ? differences : m_width - ((differences - m_width) & 1);
    }
    std::ptrdiff_t furthestFrom(std::ptrdiff_t diagonal) const
    {
        const std::ptrdiff_t left = (*this)[diagonal - 1], above = (*this)[diagonal + 1];
        const std::ptrdiff_t right = left != cNowhere && left < m_width ? left + 1 : cNowhere;
        const std::ptrdiff_t down = above != cNowhere && above - diagonal <= m_height ? above : cNowhere;
        return std::max(right, down);
    }

    std::vector<std::ptrdiff_t>& m_furthest;
    const std::ptrdiff_t m_width, m_height;
};

tAlignedPairs tSequenceAligner::align(std::span<const tWaitingMessage> a, std::span<const tWaitingMessage> b)
{
    m_pairs.clear();
    keepCommon(a, b);
    alignBox({0, static_cast<std::ptrdiff_t>(m_a.numbers.size()), 0, static_cast<std::ptrdiff_t>(m_b.numbers.size())});
    return std::move(m_pairs);
}

void tSequenceAligner::keepCommon(std::span<const tWaitingMessage> a, std::span<const tWaitingMessage> b)
{
    std::unordered_map<std::uint64_t, tNumbering> numbers(a.size());
    for (const tWaitingMessage& message : a)
        numbers.try_emplace(message.hash, tNumbering{static_cast<std::uint32_t>(numbers.size())});
    for (tCommon* const common : {&m_a, &m_b})
    {
        common->numbers.clear();
        common->places.clear();
    }
    for (std::size_t i = 0; i < b.size(); ++i)
    {
        const auto found = numbers.find(b[i].hash);
        if (found == numbers.end())
            continue;
        found->second.inB = true;
        m_b.numbers.push_back(found->second.number);
        m_b.places.push_back(i);
    }
    for (std::size_t i = 0; i < a.size(); ++i)
    {
        const tNumbering& numbering = numbers.at(a[i].hash);
        if (!numbering.inB)
            continue;
        m_a.numbers.push_back(numbering.number);
        m_a.places.push_back(i);
    }
}

void tSequenceAligner::pair(std::ptrdiff_t a, std::ptrdiff_t b)
{
    m_pairs.push_back({m_a.places[static_cast<std::size_t>(a)], m_b.places[static_cast<std::size_t>(b)]});
}

void tSequenceAligner::alignBox(tBox box)
{
    const auto equal = [this](std::ptrdiff_t a, std::ptrdiff_t b) {
        return m_a.numbers[static_cast<std::size_t>(a)] == m_b.numbers[static_cast<std::size_t>(b)];
    };
    for (; box.a0 < box.a1 && box.b0 < box.b1 && equal(box.a0, box.b0); ++box.a0, ++box.b0)
        pair(box.a0, box.b0);
    std::ptrdiff_t behind = 0;
    for (; box.a0 < box.a1 && box.b0 < box.b1 && equal(box.a1 - 1, box.b1 - 1); ++behind)
        --box.a1, --box.b1;
    if (box.a0 < box.a1 && box.b0 < box.b1)
    {
        const tPlace middle = split(box);
        alignBox({box.a0, middle.a, box.b0, middle.b});
        alignBox({middle.a, box.a1, middle.b, box.b1});
    }
    for (std::ptrdiff_t i = 0; i < behind; ++i)
        pair(box.a1 + i, box.b1 + i);
}

// Returns a place of a shortest path through a box, or of a short one if that would take too long; not one of the
// box's two ends.
tSequenceAligner::tPlace tSequenceAligner::split(const tBox& box)
{
    const std::ptrdiff_t width = box.a1 - box.a0, height = box.b1 - box.b0, delta = width - height;
    const bool odd = (delta & 1) != 0;
    const auto number = [](const tCommon& common, std::ptrdiff_t i) {
        return common.numbers[static_cast<std::size_t>(i)];
    };
    const auto equalForward = [&](std::ptrdiff_t x, std::ptrdiff_t y) {
        return number(m_a, box.a0 + x) == number(m_b, box.b0 + y);
    };
    const auto equalBackward = [&](std::ptrdiff_t x, std::ptrdiff_t y) {
        return number(m_a, box.a1 - 1 - x) == number(m_b, box.b1 - 1 - y);
    };
    tPaths forward(m_forward, width, height), backward(m_backward, width, height);
    tPlace middle{};
    for (std::ptrdiff_t differences = 0; differences <= cMostSteps; ++differences)
    {
        // A path forward on diagonal d meets one backward on delta - d.
        const auto meetsBackward = [&](std::ptrdiff_t d, std::ptrdiff_t x) {
            middle = {box.a0 + x, box.b0 + x - d};
            const std::ptrdiff_t other = delta - d;
            return odd && backward.has(other, differences - 1) && backward[other] != cNowhere &&
                   x + backward[other] >= width;
        };
        if (forward.step(differences, equalForward, meetsBackward))
            return middle;
        const auto meetsForward = [&](std::ptrdiff_t d, std::ptrdiff_t x) {
            middle = {box.a1 - x, box.b1 - x + d};
            const std::ptrdiff_t other = delta - d;
            return !odd && forward.has(other, differences) && forward[other] != cNowhere && x + forward[other] >= width;
        };
        if (backward.step(differences, equalBackward, meetsForward))
            return middle;
    }
    const tPlace fromBegin = forward.best(cMostSteps), fromEnd = backward.best(cMostSteps);
    if (fromBegin.a + fromBegin.b >= fromEnd.a + fromEnd.b)
        return {box.a0 + fromBegin.a, box.b0 + fromBegin.b};
    return {box.a1 - fromEnd.a, box.b1 - fromEnd.b};
}
}  // namespace recordings
