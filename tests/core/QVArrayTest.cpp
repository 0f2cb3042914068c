#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "QVStringPrint.h"
#include "core/QVArray.h"
#include "core/QVStringArray.h"

namespace
{

// Counts live objects, so that every constructor is matched by a destructor.
struct Tracked
{
    static int live;
    int value;
    Tracked(int v = 0) : value(v) { ++live; }
    Tracked(const Tracked& other) : value(other.value) { ++live; }
    Tracked(Tracked&& other) noexcept : value(other.value) { ++live; }
    Tracked& operator=(const Tracked&) = default;
    ~Tracked() { --live; }
};
int Tracked::live = 0;

struct Deleted
{
    static int count;
    ~Deleted() { ++count; }
};
int Deleted::count = 0;

}  // namespace

TEST(QVArrayTest, AutomaticGrowthTakesTheFixedSteps)
{
    QVNumberArray<int32_t> array;
    std::vector<int32_t> capacities;
    int32_t last = 0;
    for (int32_t i = 0; i < 140000; ++i)
    {
        array.Add(i);
        if (array.GetCapacity() != last)
        {
            last = array.GetCapacity();
            capacities.push_back(last);
            if (i == 64)
            {
                EXPECT_EQ(last, 256) << "the 65th element";
            }
        }
    }
    const std::vector<int32_t> expected = {
        4, 64, 256, 1024, 4096, 16384, 65536, 65536 + 65537, 65536 + 65537 + 65537};
    EXPECT_EQ(capacities, expected);
    for (int32_t i = 0; i < 140000; ++i)
        ASSERT_EQ(array[i], i);

    EXPECT_EQ(QVArrayBase::NextCapacity(0, 1, -1), 4);
    EXPECT_EQ(QVArrayBase::NextCapacity(4, 5, -1), 64);
    EXPECT_EQ(QVArrayBase::NextCapacity(64, 65, -1), 256);
    EXPECT_EQ(QVArrayBase::NextCapacity(65536, 65537, -1), 65536 + 65537);
    EXPECT_EQ(QVArrayBase::NextCapacity(10, 11, 10), 20);
    EXPECT_EQ(QVArrayBase::NextCapacity(0, 1, 3), 3);
}

TEST(QVArrayTest, SetGrowByRoundsUpToItsMultiple)
{
    QVNumberArray<double> array;
    array.SetGrowBy(10);
    for (int i = 0; i < 10; ++i)
        array.Add(i);
    EXPECT_EQ(array.GetCapacity(), 10);
    array.Add(10);
    EXPECT_EQ(array.GetCapacity(), 20);
    array.InsertAt(0, -1.0, 15);
    EXPECT_EQ(array.GetCount(), 26);
    EXPECT_EQ(array.GetCapacity(), 30);
    EXPECT_EQ(array[14], -1.0);
    EXPECT_EQ(array[15], 0.0);
    EXPECT_EQ(array[25], 10.0);
}

TEST(QVArrayTest, RemovalKeepsCapacityAndZeroesTheTail)
{
    QVNumberArray<int64_t> array;
    for (int64_t value = 1; value <= 6; ++value)
        array.Add(value);
    EXPECT_EQ(array.GetCapacity(), 64);
    array.RemoveAt(1, 2);
    EXPECT_EQ(array.GetCount(), 4);
    EXPECT_EQ(array.GetCapacity(), 64);
    EXPECT_EQ(array[1], 4);
    EXPECT_EQ(array[3], 6);
    const int64_t* raw = array.GetData();
    EXPECT_EQ(raw[4], 0);
    EXPECT_EQ(raw[5], 0);
    array.RemoveAt(3, 100);  // clipped to the end
    EXPECT_EQ(array.GetCount(), 3);
    array.RemoveAt(-1);
    array.RemoveAt(3);
    EXPECT_EQ(array.GetCount(), 3);
    array.RemoveAllKeepCapacity();
    EXPECT_EQ(array.GetCapacity(), 64);
    array.RemoveAll();
    EXPECT_EQ(array.GetCapacity(), 0);
    EXPECT_EQ(array.GetData(), nullptr);

    EXPECT_EQ(array.GetPtr(0), nullptr);
    array.Add(7);
    EXPECT_EQ(*array.GetPtr(0), 7);
    EXPECT_EQ(array.GetPtr(1), nullptr);
    EXPECT_EQ(array.GetPtr(-1), nullptr);
}

TEST(QVArrayTest, ElementsAreConstructedAndDestroyedOnce)
{
    Tracked::live = 0;
    {
        QVArray<Tracked> array;
        for (int i = 0; i < 300; ++i)
            array.Add(Tracked(i));
        EXPECT_EQ(Tracked::live, 300);
        array.InsertAt(10, Tracked(-1), 3);
        array.RemoveAt(0, 5);
        EXPECT_EQ(Tracked::live, 298);
        EXPECT_EQ(array[5].value, -1);
        EXPECT_EQ(array[8].value, 10);
        array.Add(array[0]);  // an element of itself, across a growth
        EXPECT_EQ(array.GetLast().value, 5);
        QVArray<Tracked> copy = array;
        EXPECT_EQ(Tracked::live, 2 * 299);
        copy.Append(copy);
        EXPECT_EQ(copy.GetCount(), 598);
        EXPECT_EQ(copy[299].value, 5);
        array.SetCount(2);
        EXPECT_EQ(Tracked::live, 2 + 598);
        QVArray<Tracked> moved = std::move(copy);
        EXPECT_EQ(copy.GetCount(), 0);
        EXPECT_EQ(moved.GetCount(), 598);
    }
    EXPECT_EQ(Tracked::live, 0);
}

TEST(QVArrayTest, NumberAndPointerArraysSearchAndSort)
{
    QVNumberArray<int> numbers{5, 3, 9, 1, 3};
    EXPECT_EQ(numbers.Find(3), 1);
    EXPECT_EQ(numbers.Find(3, 2), 4);
    EXPECT_EQ(numbers.Find(7), -1);
    EXPECT_EQ(numbers.AddUnique(9), 2);
    EXPECT_EQ(numbers.AddUnique(4), 5);
    numbers.Sort();
    EXPECT_EQ(std::vector<int>(numbers.begin(), numbers.end()),
              (std::vector<int>{1, 3, 3, 4, 5, 9}));
    EXPECT_EQ(numbers.BinarySearch(4), 3);
    EXPECT_EQ(numbers.BinarySearch(2), -1);
    numbers.Sort(true);
    EXPECT_EQ(numbers[0], 9);
    EXPECT_TRUE(numbers.Remove(9));
    EXPECT_FALSE(numbers.Remove(9));

    int a = 1, b = 2;
    QVPointerArray<int> pointers;
    pointers.Add(&a);
    pointers.Add(&b);
    EXPECT_EQ(pointers.Find(&b), 1);
    int sum = 0;
    for (int* p : pointers)
        sum += *p;
    EXPECT_EQ(sum, 3);
    pointers.RemoveAll();  // does not touch what it pointed to
    EXPECT_EQ(a + b, 3);
}

TEST(QVArrayTest, OwnedPointersAreDeleted)
{
    Deleted::count = 0;
    {
        QVOwnedPtrArray<Deleted> owned;
        for (int i = 0; i < 10; ++i)
            owned.Add(new Deleted);
        owned.RemoveAt(2, 3);
        EXPECT_EQ(Deleted::count, 3);
        Deleted* kept = owned.Detach(0);
        EXPECT_EQ(owned.GetCount(), 6);
        EXPECT_EQ(Deleted::count, 3);
        delete kept;
        owned.SetAt(0, new Deleted);
        EXPECT_EQ(Deleted::count, 5);
        EXPECT_EQ(owned.Detach(99), nullptr);
    }
    EXPECT_EQ(Deleted::count, 11);
}

TEST(QVArrayTest, PairArrayFindsEitherSide)
{
    QVPairArray<int, QVString> pairs;
    pairs.Add(2, QVString(u"Left"));
    pairs.Add(3, QVString(u"Right"));
    EXPECT_EQ(pairs.FindFirst(3), 1);
    EXPECT_EQ(pairs.FindSecond(QVString(u"Left")), 0);
    EXPECT_EQ(pairs.FindFirst(4), -1);
    EXPECT_EQ(pairs[1].second, u"Right");
}

TEST(QVArrayTest, StringArraysSplitJoinAndSort)
{
    const QVString text(u"a,,b,c");
    QVStringArray pieces = QVStringArray::Split(text, u",");
    ASSERT_EQ(pieces.GetCount(), 4);
    EXPECT_TRUE(pieces[1].IsEmpty());
    EXPECT_EQ(pieces.Join(u","), text);
    EXPECT_EQ(QVStringArray::Split(text, u",", false).GetCount(), 3);
    EXPECT_EQ(text.Split(u",,").Join(u"|"), u"a|b,c");
    EXPECT_EQ(QVStringArray::Split(QVString(u"x::y::"), u"::").GetCount(), 3);
    EXPECT_EQ(QVStringArray::SplitAny(QVString(u"1 2\t3"), u" \t").Join(u"+"), u"1+2+3");
    EXPECT_EQ(QVStringArray::Split(QVString(), u",").GetCount(), 1);
    EXPECT_EQ(QVStringArray::Split(QVString(), u",", false).GetCount(), 0);

    QVStringArray names{QVString(u"beta"), QVString(u"Alpha"), QVString(u"alpha"),
                        QVString(u"Gamma")};
    EXPECT_EQ(names.Find(u"ALPHA"), -1);
    EXPECT_EQ(names.Find(u"ALPHA", true), 1);
    names.Sort();
    EXPECT_EQ(names.Join(u" "), u"Alpha Gamma alpha beta");
    names.Sort(true);  // stable: Alpha stays before alpha
    EXPECT_EQ(names.Join(u" "), u"Alpha alpha beta Gamma");
    names.RemoveAt(0);
    // The freed slot holds no stale string pointer.
    const QVString* raw = names.GetData();
    const void* stale = nullptr;
    std::memcpy(&stale, raw + 3, sizeof(stale));
    EXPECT_EQ(stale, nullptr);
}
