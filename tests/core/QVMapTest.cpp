#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "QVStringPrint.h"
#include "core/QVMap.h"
#include "core/QVUniqueList.h"

namespace
{

using IntMap = QVMap<int32_t, int32_t, int32_t, int32_t>;

struct Owned
{
    static int deleted;
    int value;
    explicit Owned(int v) : value(v) {}
    ~Owned() { ++deleted; }
};
int Owned::deleted = 0;

class CountingAllocator : public IQVBlockAllocator
{
public:
    int live = 0;
    void* AllocateBlock(size_t size) override
    {
        ++live;
        return ::operator new(size);
    }
    void FreeBlock(void* block) override
    {
        --live;
        ::operator delete(block);
    }
};

}  // namespace

TEST(QVMapTest, TableGrowsToSevenThenThirtyOne)
{
    IntMap map;
    EXPECT_EQ(map.GetBucketCount(), 0);
    EXPECT_EQ(map.Find(1), nullptr);
    map[100] = 1;
    EXPECT_EQ(map.GetBucketCount(), 7);
    for (int32_t key = 1; key < 16; ++key)
        map[key] = key;
    EXPECT_EQ(map.GetCount(), 16);
    EXPECT_EQ(map.GetBucketCount(), 7);  // 16 <= 2 * 7 + 2
    map[16] = 16;
    EXPECT_EQ(map.GetBucketCount(), 31);  // 17 > 16, and 32 is the power of two above 17
    for (int32_t key = 1; key <= 16; ++key)
        ASSERT_EQ(*map.Find(key), key);
    EXPECT_EQ(*map.Find(100), 1);

    // With the margin, 6 * 120 / 100 = 7, 7 gives 8, 110 gives 132 and 106 gives 127.
    const std::tuple<int32_t, bool, int32_t> buckets[] = {
        {0, false, 7}, {7, false, 7},     {8, false, 15},   {16, false, 31}, {6, true, 7},
        {7, true, 15}, {110, false, 127}, {110, true, 255}, {106, true, 127}};
    for (const auto& [count, margin, expected] : buckets)
        EXPECT_EQ(QVMapBase::BucketCountFor(count, margin), expected) << count << " " << margin;
    map.InitHashTable(110);
    EXPECT_EQ(map.GetBucketCount(), 255);
    EXPECT_EQ(map.GetCount(), 17);
    EXPECT_EQ(*map.Find(16), 16);  // nodes were relinked
}

TEST(QVMapTest, IntegerKeysHashToThemselvesAndChainInOrder)
{
    EXPECT_EQ(QVHashKey(12345), 12345u);
    EXPECT_EQ(QVHashKey(int8_t{-1}), 255u);
    enum class EKind
    {
        A = 9
    };
    EXPECT_EQ(QVHashKey(EKind::A), 9u);

    IntMap map;
    for (int32_t key : {14, 0, 7, 3})
        map[key] = key * 10;  // 14, 0, 7 share bucket 0 of 7
    std::vector<int32_t> order;
    for (const auto& node : map)
        order.push_back(node.key);
    EXPECT_EQ(order, (std::vector<int32_t>{14, 0, 7, 3}));
    EXPECT_TRUE(map.Remove(0));
    EXPECT_FALSE(map.Remove(0));
    order.clear();
    for (const auto& node : map)
        order.push_back(node.key);
    EXPECT_EQ(order, (std::vector<int32_t>{14, 7, 3}));
    int32_t value = 0;
    EXPECT_TRUE(map.Lookup(7, value));
    EXPECT_EQ(value, 70);
    EXPECT_FALSE(map.Lookup(8, value));

    map.RemoveAll();
    EXPECT_EQ(map.GetCount(), 0);
    EXPECT_EQ(map.GetBucketCount(), 7);  // the buckets stay
    EXPECT_EQ(map.begin(), map.end());
}

TEST(QVMapTest, AgreesWithAStandardMapUnderRandomChanges)
{
    IntMap map;
    std::unordered_map<int32_t, int32_t> reference;
    std::mt19937 random(7);
    for (int step = 0; step < 200000; ++step)
    {
        const int32_t key = static_cast<int32_t>(random() % 5000) - 2500;
        switch (random() % 3)
        {
        case 0:
            map.SetAt(key, step);
            reference[key] = step;
            break;
        case 1: ASSERT_EQ(map.Remove(key), reference.erase(key) == 1); break;
        default:
        {
            const int32_t* found = map.Find(key);
            const auto expected = reference.find(key);
            ASSERT_EQ(found != nullptr, expected != reference.end());
            if (found)
            {
                ASSERT_EQ(*found, expected->second);
            }
        }
        }
        ASSERT_EQ(map.GetCount(), static_cast<int32_t>(reference.size()));
        ASSERT_LE(map.GetCount(), 2 * map.GetBucketCount() + 2);
    }
    int32_t visited = 0;
    for (const auto& node : map)
    {
        ASSERT_EQ(reference.at(node.key), node.value);
        ++visited;
    }
    EXPECT_EQ(visited, map.GetCount());
    IntMap copy = map;
    EXPECT_EQ(copy.GetCount(), map.GetCount());
    for (const auto& [key, value] : reference)
        ASSERT_EQ(*copy.Find(key), value);
}

TEST(QVMapTest, StringMapsWithAndWithoutCase)
{
    QVStringMap<int> exact;
    exact[QVString(u"Left")] = 2;
    exact[u"Right"_qv] = 3;
    EXPECT_EQ(*exact.Find(u"Left"_qv), 2);
    EXPECT_EQ(exact.Find(QVString(u"LEFT")), nullptr);
    EXPECT_EQ(exact.HashKey(QVString(u"ab")), 97u * 65599u + 98u);

    QVStringMap<int> blind(true);
    blind[QVString(u"Left")] = 2;
    blind[QVString(u"LEFT")] = 5;
    blind[QVString(u"\xC9t\xE9")] = 7;
    EXPECT_EQ(blind.GetCount(), 2);
    EXPECT_EQ(*blind.Find(QVString(u"left")), 5);
    EXPECT_EQ(*blind.Find(QVString(u"\xE9T\xC9")), 7);
    EXPECT_EQ(blind.HashKey(QVString(u"AB")), 97u * 65599u + 98u);
    EXPECT_TRUE(blind.Remove(QVString(u"lEfT")));

    QVStringMap<int> copy = blind;
    EXPECT_TRUE(copy.IsNoCase());
    EXPECT_EQ(*copy.Find(QVString(u"\xC9T\xC9")), 7);
}

TEST(QVMapTest, OwnedValuesAreDeleted)
{
    Owned::deleted = 0;
    CountingAllocator allocator;
    {
        QVOwnedPtrMap<int, Owned> map;
        map.SetNodeAllocator(&allocator);
        for (int i = 0; i < 20; ++i)
            map.SetAt(i, new Owned(i));
        EXPECT_EQ(allocator.live, 20);
        map.SetAt(3, new Owned(33));  // replaces and deletes the old value
        EXPECT_EQ(Owned::deleted, 1);
        EXPECT_EQ((*map.Find(3))->value, 33);
        map.Remove(4);
        EXPECT_EQ(Owned::deleted, 2);
        Owned* detached = map.Detach(5);
        EXPECT_EQ(Owned::deleted, 2);
        EXPECT_EQ(detached->value, 5);
        delete detached;
        EXPECT_EQ(map.Detach(5), nullptr);
    }
    EXPECT_EQ(Owned::deleted, 21);
    EXPECT_EQ(allocator.live, 0);
}

TEST(QVMapTest, UniqueListKeepsFirstOrder)
{
    QVUniqueList<QVString> list;
    EXPECT_EQ(list.Add(QVString(u"b")), 0);
    EXPECT_EQ(list.Add(QVString(u"a")), 1);
    EXPECT_EQ(list.Add(QVString(u"b")), 0);
    EXPECT_EQ(list.Add(QVString(u"c")), 2);
    EXPECT_EQ(list.GetCount(), 3);
    EXPECT_TRUE(list.Remove(QVString(u"b")));
    EXPECT_EQ(list.Find(QVString(u"c")), 1);
    EXPECT_EQ(list.Find(QVString(u"b")), -1);
    QVString joined;
    for (const QVString& item : list)
        joined += item;
    EXPECT_EQ(joined, u"ac");
}
