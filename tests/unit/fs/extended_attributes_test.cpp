// SPDX-License-Identifier: BSD-3-Clause
#include "fs_fixture.h"

#include <cerrno>
#include <functional>
#include <map>
#include <sys/xattr.h>
#include <vector>

namespace {

/// Actions that run before the nth call of a function, counted from 1.
std::map<int, std::function<void()>> beforeGet;
std::map<int, std::function<void()>> beforeList;
int gets = 0;
int lists = 0;
bool unsupported = false;

void Before(std::map<int, std::function<void()>>& actions, int& calls)
{
    ++calls;
    if (const auto action = actions.find(calls); action != actions.end()) {
        action->second();
    }
}

} // namespace

// The linker redirects calls of these two functions here.
extern "C" ssize_t __real_getxattr(const char*, const char*, void*, size_t);
extern "C" ssize_t __real_listxattr(const char*, char*, size_t);

extern "C" ssize_t __wrap_getxattr(const char* path, const char* name, void* value, size_t size)
{
    Before(beforeGet, gets);
    return __real_getxattr(path, name, value, size);
}

extern "C" ssize_t __wrap_listxattr(const char* path, char* list, size_t size)
{
    Before(beforeList, lists);
    if (unsupported) {
        errno = ENOTSUP;
        return -1;
    }
    return __real_listxattr(path, list, size);
}

namespace {

using namespace FsTest;

class Attributes : public FsTestBase
{
protected:
    void SetUp() override
    {
        beforeGet.clear();
        beforeList.clear();
        gets = 0;
        lists = 0;
        unsupported = false;
        if (setxattr(file.c_str(), "user.probe", "x", 1, 0) != 0) {
            GTEST_SKIP() << "the temporary directory's filesystem has no extended attributes";
        }
        removexattr(file.c_str(), "user.probe");
    }

    void Set(const std::string& name, const std::string& value) const
    {
        ASSERT_EQ(setxattr(file.c_str(), name.c_str(), value.data(), value.size(), 0), 0);
    }

    const fs::path file = MakeFile("file");
};

TEST_F(Attributes, AnEntryWithoutAttributesIsReadWithTwoCalls)
{
    EXPECT_TRUE(GetExtendedAttributes(file).empty());
    EXPECT_EQ(lists, 2);
    EXPECT_EQ(gets, 0);
}

TEST_F(Attributes, AreReadInTheSystemsOrderWithEveryByte)
{
    const std::string bytes("a\0b\0\0c\xff", 7);
    Set("user.one", bytes);
    Set("user.two", "second");
    std::vector<char> names(1000);
    const ssize_t size = __real_listxattr(file.c_str(), names.data(), names.size());
    const ExtendedAttributes attributes = GetExtendedAttributes(file);
    ASSERT_EQ(attributes.size(), 2U);
    EXPECT_EQ(attributes[0].first, names.data());
    EXPECT_GT(size, 0);
    EXPECT_EQ(GetExtendedAttribute(file, "user.one"), bytes);
    EXPECT_EQ(GetExtendedAttribute(file, "user.two"), "second");
}

TEST_F(Attributes, AnEmptyValueIsReadWithTwoCallsAndNeverWritten)
{
    Set("user.empty", "");
    EXPECT_EQ(GetExtendedAttribute(file, "user.empty"), "");
    EXPECT_EQ(gets, 2);
    const fs::path other = MakeFile("other");
    SetExtendedAttribute(other, "user.empty", "");
    EXPECT_TRUE(GetExtendedAttributes(other).empty());
    SetExtendedAttribute(other, "user.kept", "value");
    SetExtendedAttribute(other, "user.kept", "");
    EXPECT_EQ(GetExtendedAttribute(other, "user.kept"), "value");
    EXPECT_NO_THROW(SetExtendedAttribute(Root() / "missing", "user.empty", ""));
}

/// Uses empty values, because some filesystems store all attributes in one block.
TEST_F(Attributes, TwoHundredAreRead)
{
    for (int number = 0; number < 200; ++number) {
        const std::string name = "user." + std::to_string(number);
        if (setxattr(file.c_str(), name.c_str(), "", 0, 0) != 0) {
            GTEST_SKIP() << "this filesystem takes only " << number << " attributes";
        }
    }
    EXPECT_EQ(GetExtendedAttributes(file).size(), 200U);
    EXPECT_EQ(lists, 2);
    EXPECT_EQ(gets, 400);
}

TEST_F(Attributes, ManyAreWritten)
{
    for (int number = 0; number < 50; ++number) {
        SetExtendedAttribute(file, "user." + std::to_string(number), "v");
    }
    EXPECT_EQ(GetExtendedAttributes(file).size(), 50U);
}

TEST_F(Attributes, TheLargestValueOfTheFilesystemIsReadWhole)
{
    std::string value(65536, 'x');
    while (!value.empty() &&
           setxattr(file.c_str(), "user.large", value.data(), value.size(), 0) != 0) {
        value.resize(value.size() / 2);
    }
    ASSERT_FALSE(value.empty());
    EXPECT_EQ(GetExtendedAttribute(file, "user.large"), value);
}

TEST_F(Attributes, WritingReplacesTheValue)
{
    SetExtendedAttribute(file, "user.a", "old value");
    SetExtendedAttribute(file, "user.a", "new");
    EXPECT_EQ(GetExtendedAttribute(file, "user.a"), "new");
}

TEST_F(Attributes, ReadingFollowsALinkAndWritingDoesNot)
{
    Set("user.a", "target's");
    fs::create_symlink("file", Root() / "link");
    EXPECT_EQ(GetExtendedAttribute(Root() / "link", "user.a"), "target's");
    EXPECT_EQ(GetExtendedAttributes(Root() / "link").size(), 1U);
    // A symlink cannot have attributes of the user namespace, and its target must not get them.
    ExpectFailure([&] { SetExtendedAttribute(Root() / "link", "user.b", "x"); },
                  "Couldn't attach user.b extended attribute to " + (Root() / "link").native());
    EXPECT_EQ(GetExtendedAttributes(file).size(), 1U);
    if (geteuid() == 0 && lsetxattr((Root() / "link").c_str(), "trusted.probe", "x", 1, 0) == 0) {
        SetExtendedAttribute(Root() / "link", "trusted.a", "the link's");
        EXPECT_EQ(lgetxattr((Root() / "link").c_str(), "trusted.a", nullptr, 0), 10);
        EXPECT_LT(__real_getxattr(file.c_str(), "trusted.a", nullptr, 0), 0);
    }
}

TEST_F(Attributes, AMissingOneFailsWhenItsSizeIsReadAndLogsNothing)
{
    EXPECT_EQ(LogOf([&] {
                  ExpectFailure([&] { GetExtendedAttribute(file, "user.none"); },
                                "Couldn't retrieve size of user.none extended attribute: " +
                                    file.native());
                  ExpectFailure([&] { GetExtendedAttributes(Root() / "missing"); },
                                "Couldn't retrieve size of extended attributes: " +
                                    (Root() / "missing").native());
                  ExpectFailure([&] { SetExtendedAttribute(Root() / "missing", "user.a", "x"); },
                                "Couldn't attach user.a extended attribute to " +
                                    (Root() / "missing").native());
              }),
              "");
}

/// Filesystems without attributes are not always available, so the system's refusal is simulated.
TEST_F(Attributes, AFilesystemWithoutAttributesFailsAtTheSizeOfTheList)
{
    unsupported = true;
    ExpectFailure([&] { GetExtendedAttributes(file); },
                  "Couldn't retrieve size of extended attributes: " + file.native());
    EXPECT_EQ(lists, 1);
}

TEST_F(Attributes, AValueThatGrowsBetweenTheTwoCallsIsAFailure)
{
    Set("user.a", "short");
    beforeGet[2] = [&] { Set("user.a", "a longer value"); };
    ExpectFailure([&] { GetExtendedAttribute(file, "user.a"); },
                  "Couldn't retrieve user.a extended attribute: " + file.native());
    EXPECT_EQ(gets, 2) << "no second attempt";
}

TEST_F(Attributes, AValueThatShrinksBetweenTheTwoCallsIsPaddedWithZeroBytes)
{
    Set("user.a", "long value");
    beforeGet[2] = [&] { Set("user.a", "ab"); };
    EXPECT_EQ(GetExtendedAttribute(file, "user.a"), std::string("ab\0\0\0\0\0\0\0\0", 10));
}

TEST_F(Attributes, AListThatGrowsBetweenTheTwoCallsIsAFailure)
{
    Set("user.a", "x");
    beforeList[2] = [&] { Set("user.another", "x"); };
    ExpectFailure([&] { GetExtendedAttributes(file); },
                  "Couldn't retrieve extended attributes: " + file.native());
}

TEST_F(Attributes, AListThatShrinksBetweenTheTwoCallsEndsInEmptyNames)
{
    Set("user.a", "x");
    Set("user.b", "x");
    beforeList[2] = [&] { removexattr(file.c_str(), "user.b"); };
    ExpectFailure([&] { GetExtendedAttributes(file); },
                  "Couldn't retrieve size of  extended attribute: " + file.native());
}

TEST_F(Attributes, AnEmptyListThatGrowsIsStillEmpty)
{
    beforeList[2] = [&] { Set("user.a", "x"); };
    EXPECT_TRUE(GetExtendedAttributes(file).empty());
    EXPECT_EQ(lists, 2);
}

} // namespace
