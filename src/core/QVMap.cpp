#include "core/QVMap.h"

#include <cstring>

namespace
{

constexpr int32_t SMALLEST_TABLE = 7;
constexpr int64_t LARGEST_POWER = int64_t{1} << 30;

}  // namespace

int32_t QVMapBase::BucketCountFor(int32_t count, bool margin)
{
    int64_t wanted = count < 0 ? 0 : count;
    if (margin)
        wanted = wanted * 120 / 100;
    if (wanted < 8)
        return SMALLEST_TABLE;
    int64_t power = 8;
    while (power <= wanted && power < LARGEST_POWER)
        power *= 2;
    return static_cast<int32_t>(power - 1);
}

void QVMapBase::Resize(int32_t count, bool margin)
{
    const int32_t bucketCount = BucketCountFor(count, margin);
    auto** buckets = static_cast<QVMapNodeBase**>(
        ::operator new(sizeof(QVMapNodeBase*) * static_cast<size_t>(bucketCount)));
    std::memset(buckets, 0, sizeof(QVMapNodeBase*) * static_cast<size_t>(bucketCount));
    for (int32_t bucket = 0; bucket < m_bucketCount; ++bucket)
    {
        QVMapNodeBase* node = m_buckets[bucket];
        while (node)
        {
            QVMapNodeBase* next = node->next;
            QVMapNodeBase*& head = buckets[node->hash % static_cast<uint32_t>(bucketCount)];
            node->next = head;
            head = node;
            node = next;
        }
    }
    FreeBuckets();
    m_buckets = buckets;
    m_bucketCount = bucketCount;
}

void QVMapBase::FreeBuckets()
{
    ::operator delete(m_buckets);
    m_buckets = nullptr;
    m_bucketCount = 0;
}

void QVMapBase::SwapBase(QVMapBase& other) noexcept
{
    std::swap(m_count, other.m_count);
    std::swap(m_bucketCount, other.m_bucketCount);
    std::swap(m_allocator, other.m_allocator);
    std::swap(m_buckets, other.m_buckets);
}
