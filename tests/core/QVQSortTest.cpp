#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "QVStringPrint.h"
#include "core/QVQSort.h"
#include "core/QVString.h"

namespace
{

class NoCaseComparer final : public IQVComparer<QVString>
{
public:
    int Compare(const QVString& a, const QVString& b) const override { return a.CompareNoCase(b); }
};

std::vector<int> RandomInts(size_t count, int range, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<int> values(count);
    for (int& value : values)
        value = static_cast<int>(random() % static_cast<unsigned>(range));
    return values;
}

}  // namespace

TEST(QVQSortTest, SortsLikeTheStandardSortInEitherMode)
{
    const QVLessComparer<int> less;
    for (bool useWorker : {false, true})
    {
        // Sizes around the insertion limit, many duplicates, presorted and reversed input.
        for (size_t count : {0u, 1u, 2u, 16u, 17u, 18u, 100u, 200000u})
        {
            for (int range : {3, 1000000})
            {
                std::vector<int> values = RandomInts(count, range, static_cast<unsigned>(count));
                std::vector<int> expected = values;
                std::sort(expected.begin(), expected.end());
                QVQSort<int>(values.data(), static_cast<int32_t>(values.size()), less)
                    .Sort(useWorker);
                ASSERT_EQ(values, expected) << count << " " << range << " " << useWorker;
                QVQSort<int>(values.data(), static_cast<int32_t>(values.size()), less)
                    .Sort(useWorker);
                ASSERT_EQ(values, expected);
                std::reverse(values.begin(), values.end());
                QVQSort<int>(values.data(), static_cast<int32_t>(values.size()), less)
                    .Sort(useWorker);
                ASSERT_EQ(values, expected);
            }
        }
    }
}

TEST(QVQSortTest, SortsStringsByAComparer)
{
    std::vector<QVString> names;
    std::mt19937 random(5);
    for (int i = 0; i < 5000; ++i)
        names.push_back(QVString::Format(
            u"%c%d", {static_cast<char16_t>((random() % 2 ? u'a' : u'A') + random() % 26),
                      static_cast<int>(random() % 1000)}));
    const NoCaseComparer comparer;
    QVQSort<QVString>(names.data(), static_cast<int32_t>(names.size()), comparer).Sort(true);
    for (size_t i = 1; i < names.size(); ++i)
        ASSERT_LE(names[i - 1].CompareNoCase(names[i]), 0) << i;
}
