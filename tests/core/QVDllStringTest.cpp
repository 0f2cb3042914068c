#include <gtest/gtest.h>

#include <cstring>

#include "QVStringPrint.h"
#include "core/QVDllString.h"

namespace
{

// What the host does with the carriers: it sees only the interfaces.
void HostAnswers(IQVDllString& text, IQVDllBuffer& bytes)
{
    text.SetText(u"Output Filename and more", 15);
    char* room = static_cast<char*>(bytes.Resize(4));
    std::memcpy(room, "RIFF", 4);
}

}  // namespace

TEST(QVDllStringTest, HostFillsStringAndBufferThroughTheInterface)
{
    QVString name(u"old");
    const QVString keep = name;
    QVDllString carrier(&name);
    QVDllBuffer buffer;
    EXPECT_EQ(carrier.GetLength(), 3);
    HostAnswers(carrier, buffer);
    EXPECT_EQ(name, u"Output Filename");
    EXPECT_EQ(carrier.GetText(), name.c_str());
    EXPECT_EQ(keep, u"old");
    ASSERT_EQ(buffer.GetSize(), 4u);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "RIFF", 4), 0);

    carrier.SetText(u"to the end", -1);
    EXPECT_EQ(name, u"to the end");
    buffer.SetData(nullptr, 10);
    EXPECT_EQ(buffer.GetSize(), 0u);
    QVDllString detached(nullptr);
    detached.SetText(u"ignored", -1);
    EXPECT_EQ(detached.GetLength(), 0);
}
