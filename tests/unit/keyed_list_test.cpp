// SPDX-License-Identifier: BSD-3-Clause
#include "client/keyed_list.h"

#include <emporium/package.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using Emporium::Package;
using List = Emporium::KeyedList<Package, &Package::GetID>;

Package Make(const std::string& id, int version = 0)
{
    return Package(id, std::to_string(version), "", "", {});
}

std::vector<std::string> Contents(const std::vector<Package>& packages)
{
    std::vector<std::string> contents;
    for (const Package& package : packages) {
        contents.push_back(package.GetID() + "=" + package.GetVersion());
    }
    return contents;
}

/// The same list, implemented in the plainest way.
class Model
{
public:
    void Assign(std::vector<Package> items) { m_items = std::move(items); }
    const Package* Find(const std::string& id)
    {
        const auto item = First(id);
        return item != m_items.end() ? &*item : nullptr;
    }
    bool Overwrite(const Package& package)
    {
        const auto item = First(package.GetID());
        if (item == m_items.end()) {
            return false;
        }
        *item = package;
        return true;
    }
    void Append(const Package& package) { m_items.push_back(package); }
    bool Erase(const std::string& id)
    {
        const auto item = First(id);
        if (item == m_items.end()) {
            return false;
        }
        m_items.erase(item);
        return true;
    }
    const std::vector<Package>& Items() const { return m_items; }

private:
    std::vector<Package>::iterator First(const std::string& id)
    {
        return std::find_if(m_items.begin(), m_items.end(),
                            [&](const Package& item) { return item.GetID() == id; });
    }

    std::vector<Package> m_items;
};

TEST(KeyedList, AnEmptyListFindsNothing)
{
    List list;
    EXPECT_EQ(list.Find("id"), nullptr);
    EXPECT_FALSE(list.Overwrite(Make("id")));
    EXPECT_FALSE(list.Erase("id"));
    EXPECT_TRUE(list.ToVector().empty());
}

TEST(KeyedList, TheFirstOfEqualKeysIsFoundOverwrittenAndErased)
{
    List list;
    list.Assign({Make("a", 1), Make("b", 2), Make("a", 3), Make("a", 4)});
    EXPECT_EQ(list.Find("a")->GetVersion(), "1");
    EXPECT_TRUE(list.Overwrite(Make("a", 5)));
    EXPECT_EQ(Contents(list.ToVector()), (std::vector<std::string>{"a=5", "b=2", "a=3", "a=4"}));
    EXPECT_TRUE(list.Erase("a"));
    EXPECT_EQ(list.Find("a")->GetVersion(), "3");
    list.Append(Make("a", 6));
    EXPECT_TRUE(list.Erase("a"));
    EXPECT_TRUE(list.Erase("a"));
    EXPECT_EQ(Contents(list.ToVector()), (std::vector<std::string>{"b=2", "a=6"}));
}

TEST(KeyedList, EraseAcceptsTheKeyStoredInTheErasedEntry)
{
    List list;
    list.Assign({Make("a key that is too long for the internal buffer")});
    EXPECT_TRUE(list.Erase(list.Find("a key that is too long for the internal buffer")->GetID()));
    EXPECT_TRUE(list.ToVector().empty());
}

TEST(KeyedList, GrowsWithDifferentKeys)
{
    List list;
    Model model;
    for (int number = 0; number < 1000; ++number) {
        list.Append(Make(std::to_string(number)));
        model.Append(Make(std::to_string(number)));
    }
    for (int number = 0; number < 1000; ++number) {
        ASSERT_NE(list.Find(std::to_string(number)), nullptr) << number;
    }
    EXPECT_EQ(list.Find("1000"), nullptr);
    EXPECT_EQ(Contents(list.ToVector()), Contents(model.Items()));
}

TEST(KeyedList, BehavesLikeAPlainListOverManyRandomSteps)
{
    std::mt19937 random(20261121);
    List list;
    Model model;
    std::uniform_int_distribution<int> step(0, 99);
    int version = 0;
    for (int count = 0; count < 100000; ++count) {
        // The number of different keys rises and falls, so that all sizes occur.
        const int keys = 1 + (count / 500) % 200;
        const std::string id = std::to_string(random() % static_cast<unsigned>(keys));
        const Package package = Make(id, ++version);
        const int choice = step(random);
        if (choice < 30) {
            ASSERT_EQ(list.Erase(id), model.Erase(id));
        } else if (choice < 60) {
            ASSERT_EQ(list.Overwrite(package), model.Overwrite(package));
        } else if (choice < 90 && model.Items().size() < 400) {
            list.Append(package);
            model.Append(package);
        } else if (choice == 99 && count % 17 == 0) {
            std::vector<Package> items = model.Items();
            std::shuffle(items.begin(), items.end(), random);
            list.Assign(items);
            model.Assign(items);
        }
        const Package* const found = list.Find(id);
        const Package* const expected = model.Find(id);
        ASSERT_EQ(found == nullptr, expected == nullptr);
        if (found != nullptr) {
            ASSERT_EQ(&found->GetVersion(), &expected->GetVersion());
        }
        ASSERT_EQ(static_cast<std::size_t>(std::distance(list.begin(), list.end())),
                  model.Items().size());
        if (count % 50 == 0) {
            ASSERT_EQ(Contents(list.ToVector()), Contents(model.Items()));
        }
    }
}

} // namespace
