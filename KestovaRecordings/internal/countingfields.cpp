#include "KestovaRecordings/internal/countingfields.h"

#include <algorithm>
#include <bit>
#include <map>

namespace recordings
{
namespace
{
constexpr double cMostly = 0.9;              // of the steps, with losses on the wire
constexpr std::uint64_t cSmallestTurn = 32;  // steps of an antenna

std::vector<std::uint64_t> numbersAt(const tMessages& messages, const tFieldPlace& place)
{
    std::vector<std::uint64_t> numbers(messages.size());
    std::transform(messages.begin(), messages.end(), numbers.begin(),
                   [&](std::string_view message) { return place.in(message); });
    return numbers;
}

// Returns the number that is there most often, and how often.
template <typename tNumber>
std::pair<tNumber, std::size_t> mostOften(const std::vector<tNumber>& numbers)
{
    std::map<tNumber, std::size_t> counts;
    std::pair<tNumber, std::size_t> most{};
    for (const tNumber& number : numbers)
        if (const std::size_t count = ++counts[number]; count > most.second)
            most = {number, count};
    return most;
}

// Returns whether the byte changes where the number goes around, mostly, and hardly anywhere else: then it is the next
// higher byte of the same number.
bool carries(const tMessages& messages, std::size_t at, const std::vector<std::uint64_t>& numbers, bool up)
{
    std::size_t around = 0, both = 0, changes = 0;
    for (std::size_t i = 1; i < messages.size(); ++i)
    {
        const bool goesAround = up ? numbers[i] < numbers[i - 1] : numbers[i] > numbers[i - 1];
        const bool changed = messages[i][at] != messages[i - 1][at];
        around += goesAround ? 1 : 0;
        changes += changed ? 1 : 0;
        both += goesAround && changed ? 1 : 0;
    }
    return changes != 0 && 2 * both >= around && 4 * both >= 3 * changes;
}

std::size_t lowByte(const tFieldPlace& place)
{
    return place.bigEndian ? place.end() - 1 : place.at;
}

bool isPartOfWider(const tMessages& messages, std::size_t end, const tFieldPlace& place, unsigned bytes,
                   const std::vector<std::uint64_t>& numbers, bool up)
{
    const std::size_t low = lowByte(place);
    const std::size_t first = place.bigEndian ? low + 1 - bytes : low, last = place.bigEndian ? low : low + bytes - 1;
    return (first > 0 && carries(messages, first - 1, numbers, up)) ||
           (last + 1 < end && carries(messages, last + 1, numbers, up));
}

std::vector<std::int64_t> stepsOf(const std::vector<std::uint64_t>& numbers)
{
    std::vector<std::int64_t> steps;
    for (std::size_t i = 1; i < numbers.size(); ++i)
        steps.push_back(static_cast<std::int64_t>(numbers[i] - numbers[i - 1]));
    return steps;
}

// Returns the step that most of the numbers go on by, if there is one.
std::optional<std::int64_t> usualStep(const std::vector<std::int64_t>& steps)
{
    std::vector<std::int64_t> sorted = steps;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const auto often = std::count(steps.begin(), steps.end(), *middle);
    return static_cast<double>(often) >= cMostly * static_cast<double>(steps.size()) ? std::optional(*middle)
                                                                                     : std::nullopt;
}

std::optional<tCircling> circlingAt(const tMessages& messages, std::size_t end, const tFieldPlace& place)
{
    if (isConstant(messages, lowByte(place)))
        return std::nullopt;
    std::vector<std::uint64_t> numbers = numbersAt(messages, place);
    std::uint64_t changing = 0;
    for (const std::uint64_t number : numbers)
        changing |= number ^ numbers.front();
    const std::uint64_t mask = ~std::uint64_t{0} >> std::countl_zero(changing);
    for (std::uint64_t& number : numbers)
        number &= mask;
    const std::vector<std::int64_t> steps = stepsOf(numbers);
    const std::int64_t step = usualStep(steps).value_or(0);
    if (step == 0)
        return std::nullopt;
    std::vector<std::uint64_t> periods;
    for (const std::int64_t each : steps)
        if ((step > 0) != (each > 0) && each != 0)
            periods.push_back(static_cast<std::uint64_t>(step > 0 ? step - each : each - step));
    const auto [period, turns] = mostOften(periods);
    const std::uint64_t highest = *std::max_element(numbers.begin(), numbers.end());
    const auto size = static_cast<std::uint64_t>(step > 0 ? step : -step);
    if (turns == 0 || highest >= period || period % size != 0 || period / size < cSmallestTurn)
        return std::nullopt;
    const bool fillsBytes = std::has_single_bit(period) && std::countr_zero(period) % 8 == 0;
    if (fillsBytes &&
        isPartOfWider(messages, end, place, static_cast<unsigned>(std::countr_zero(period)) / 8, numbers, step > 0))
        return std::nullopt;
    const bool masked = (place.in(messages.front()) & ~mask) != 0;
    return tCircling{place, masked ? mask : ~std::uint64_t{0}, step, period, turns, highest + size >= period};
}
}  // namespace

std::uint64_t tFieldPlace::in(std::string_view message) const
{
    std::uint64_t number = 0;
    for (unsigned i = 0; i < width; ++i)
        number = number << 8 | static_cast<unsigned char>(message[bigEndian ? at + i : end() - 1 - i]);
    return number;
}

bool isConstant(const tMessages& messages, std::size_t at)
{
    return std::all_of(messages.begin(), messages.end(),
                       [&](std::string_view message) { return message[at] == messages.front()[at]; });
}

std::vector<tCircling> circlingFields(const tMessages& messages, std::size_t end)
{
    std::vector<tCircling> found;
    for (const unsigned width : {1u, 2u, 4u})
        for (std::size_t at = 0; at + width <= end; ++at)
            for (const bool bigEndian : {false, true})
            {
                const auto one =
                    width == 1 && bigEndian ? std::nullopt : circlingAt(messages, end, {at, width, bigEndian});
                const bool isNew = one && std::none_of(found.begin(), found.end(), [&](const tCircling& known) {
                                       return lowByte(known.place) == lowByte(one->place);
                                   });
                if (isNew)
                    found.push_back(*one);
            }
    return found;
}

std::vector<tCounting> countingFields(const tMessages& messages, std::size_t end, bool bigEndian,
                                      std::vector<tFieldPlace> taken)
{
    std::vector<tCounting> found;
    for (const unsigned width : {4u, 2u, 1u})
        for (std::size_t at = 0; at + width <= end; ++at)
        {
            const tFieldPlace place{at, width, bigEndian};
            const auto overlaps = [&](const tFieldPlace& other) { return place.overlaps(other); };
            if (std::any_of(taken.begin(), taken.end(), overlaps) || isConstant(messages, lowByte(place)) ||
                usualStep(stepsOf(numbersAt(messages, place))) != 1)
                continue;
            std::size_t constant = 0;
            while (isConstant(messages, bigEndian ? at + constant : at + width - 1 - constant))
                ++constant;
            found.push_back({place, constant});
            taken.push_back(place);
        }
    return found;
}
}  // namespace recordings
