#include "cli/commands/ApoImport.h"

#include "cli/commands/Commands.h"
#include "parametric/EqualizingFilters.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>

namespace
{

std::string Upper(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string Trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// A decimal number, with "." or "," as decimal mark; nothing else in the token.
std::optional<double> ParseNumber(std::string token)
{
    if (!IsDecimalText(token, false))
        return std::nullopt;
    for (char& c : token)
        if (c == ',')
            c = '.';
    char* end = nullptr;
    const double value = std::strtod(token.c_str(), &end);
    if (token.empty() || *end != 0 || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::vector<std::string> Tokens(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> tokens;
    for (std::string token; stream >> token;)
        tokens.push_back(token);
    return tokens;
}

// "Preamp: -6.2 dB" (the unit may be missing or glued on).
std::optional<ImportedFilter> ParsePreamp(const std::string& value)
{
    std::vector<std::string> tokens = Tokens(value);
    if (tokens.empty() || tokens.size() > 2)
        return std::nullopt;
    std::string number = tokens[0];
    if (tokens.size() == 1 && Upper(number).ends_with("DB"))
        number.resize(number.size() - 2);
    if (tokens.size() == 2 && Upper(tokens[1]) != "DB")
        return std::nullopt;
    const std::optional<double> gain = ParseNumber(number);
    if (!gain)
        return std::nullopt;
    ImportedFilter volume;
    volume.type = PARAMETRIC_VOLUME;
    volume.gain = *gain;
    return volume;
}

struct FilterFields
{
    std::optional<double> frequency, gain, q, slopeDb;
};

// "Fc F Hz Gain G dB Q Q" in any order, units optional; false on anything else.
bool ParseFields(const std::vector<std::string>& tokens, size_t from, FilterFields& fields)
{
    for (size_t i = from; i < tokens.size(); ++i)
    {
        const std::string name = Upper(tokens[i]);
        std::optional<double>* target = name == "FC"     ? &fields.frequency
                                        : name == "GAIN" ? &fields.gain
                                        : name == "Q"    ? &fields.q
                                                         : nullptr;
        if (target == nullptr || i + 1 >= tokens.size() || target->has_value())
            return false;
        *target = ParseNumber(tokens[++i]);
        if (!target->has_value())
            return false;
        const char* unit = name == "FC" ? "HZ" : name == "GAIN" ? "DB" : "";
        if (*unit && i + 1 < tokens.size() && Upper(tokens[i + 1]) == unit)
            ++i;
    }
    return true;
}

// Low and high shelves given by their corner: moved to the centre frequency
// the list's shelves take, with a Q from the slope where the line has no Q.
bool ConvertCornerShelf(bool low, const FilterFields& fields, ImportedFilter& filter)
{
    const double gain = *fields.gain;
    double slope = 0.9;
    if (fields.q)
        slope = ShelfSlopeFromQ(*fields.q, gain);
    else if (fields.slopeDb)
        slope = *fields.slopeDb / 12.0;
    if (!std::isfinite(slope) || slope <= 0)
        return false;
    const double shift = std::pow(10.0, std::fabs(gain) / (80.0 * slope));
    filter.frequency = low ? *fields.frequency * shift : *fields.frequency / shift;
    filter.q = fields.q ? *fields.q : ShelfQFromSlope(slope, gain);
    return std::isfinite(filter.q) && filter.q > 0 && std::isfinite(filter.frequency);
}

// "ON PK Fc 1000 Hz Gain -3 dB Q 1.41" and its relatives.
std::optional<ImportedFilter> ParseFilter(const std::string& value)
{
    const std::vector<std::string> tokens = Tokens(value);
    if (tokens.size() < 2)
        return std::nullopt;
    ImportedFilter filter;
    const std::string state = Upper(tokens[0]);
    if (state != "ON" && state != "OFF")
        return std::nullopt;
    filter.enabled = state == "ON";
    const std::string kind = Upper(tokens[1]);
    FilterFields fields;
    size_t from = 2;
    if ((kind == "LS" || kind == "HS") && tokens.size() > 2 && Upper(tokens[2]).ends_with("DB"))
    {
        fields.slopeDb = ParseNumber(tokens[2].substr(0, tokens[2].size() - 2));
        if (!fields.slopeDb)
            return std::nullopt;
        from = 3;
    }
    if (!ParseFields(tokens, from, fields) || !fields.frequency || *fields.frequency <= 0)
        return std::nullopt;
    filter.frequency = *fields.frequency;

    static const std::map<std::string, int32_t> simple = {
        {"PK", PARAMETRIC_PEAK},       {"PEQ", PARAMETRIC_PEAK},     {"LSC", PARAMETRIC_LOWSHELF},
        {"HSC", PARAMETRIC_HIGHSHELF}, {"LP", PARAMETRIC_LOWPASS},   {"LPQ", PARAMETRIC_LOWPASS},
        {"HP", PARAMETRIC_HIGHPASS},   {"HPQ", PARAMETRIC_HIGHPASS}, {"AP", PARAMETRIC_ALLPASS},
        {"LS", PARAMETRIC_LOWSHELF},   {"HS", PARAMETRIC_HIGHSHELF}};
    const auto found = simple.find(kind);
    if (found == simple.end())
        return std::nullopt;
    filter.type = found->second;
    const bool hasGain = filter.type == PARAMETRIC_PEAK || filter.type == PARAMETRIC_LOWSHELF ||
                         filter.type == PARAMETRIC_HIGHSHELF;
    if (hasGain != fields.gain.has_value())
        return std::nullopt;
    if (fields.gain)
        filter.gain = *fields.gain;
    if (fields.q && *fields.q <= 0)
        return std::nullopt;
    if (kind == "LS" || kind == "HS")
    {
        if (!ConvertCornerShelf(kind == "LS", fields, filter))
            return std::nullopt;
    }
    else if (fields.q)
    {
        filter.q = *fields.q;
    }
    else if (kind == "PK" || kind == "PEQ" || kind == "LSC" || kind == "HSC")
    {
        return std::nullopt;  // these need their Q
    }
    return filter;
}

}  // namespace

double ShelfSlopeFromQ(double q, double gainDb)
{
    const double a = std::pow(10.0, gainDb / 40.0);
    return 1.0 / ((1.0 / (q * q) - 2.0) / (a + 1.0 / a) + 1.0);
}

ApoImport ParseApoText(const std::string& text)
{
    ApoImport result;
    std::istringstream lines(text);
    int32_t number = 0;
    for (std::string line; std::getline(lines, line);)
    {
        ++number;
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        const std::string key = Upper(Trimmed(line.substr(0, colon)));
        const std::string value = line.substr(colon + 1);
        std::optional<ImportedFilter> filter;
        if (key == "PREAMP")
            filter = ParsePreamp(value);
        else if (key.starts_with("FILTER"))
            filter = ParseFilter(value);
        if (filter)
        {
            filter->line = number;
            result.filters.push_back(*filter);
        }
        else
            result.unmapped.push_back({number, Trimmed(line)});
    }
    return result;
}

ChannelList ImportedChannels()
{
    return {2, 3, 4, 5, 6, 7, 8, 9};
}

std::unique_ptr<CParametricFilter> MakeImportedFilter(const ImportedFilter& imported)
{
    std::unique_ptr<CParametricFilter> filter(CreateParametricFilter(imported.type));
    // Starting from the filter's own keys keeps those the import doesn't set (the
    // shelves' version among them) as a new filter has them.
    QVPropertyMap map;
    filter->Serialize(false, map);
    auto setIfKnown = [&map](const char16_t* key, double value)
    {
        if (map.Exists(QVString(key)))
            map.SetDouble(key, value);
    };
    setIfKnown(u"Frequency", imported.frequency);
    setIfKnown(u"Gain", imported.gain);
    setIfKnown(u"Q", imported.q);
    if (imported.type == PARAMETRIC_LOWPASS || imported.type == PARAMETRIC_HIGHPASS)
        setIfKnown(u"Slope", imported.slope);
    if (map.Exists(QVString(u"Channels")))
        map.SetString(u"Channels", ChannelListToText(ImportedChannels(), u';'));
    filter->Serialize(true, map);
    filter->SetEnabled(imported.enabled);
    return filter;
}
