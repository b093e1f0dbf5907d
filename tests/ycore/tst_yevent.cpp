#include "yevent.h"

#include "test_support.h"

#include <gtest/gtest.h>

using yovotest::Tracked;

TEST(YEvent, DefaultEventHasIdMinusOneAndNothingSet)
{
    YEvent event;
    EXPECT_EQ(-1, event.getEventId());
    EXPECT_EQ(nullptr, event.getClientData());
    EXPECT_EQ(nullptr, event.getClientObject());
    EXPECT_FALSE(event.isStopProcessing());
    EXPECT_EQ(42, YEvent(42).getEventId());
}

TEST(YEvent, SettersStoreTheirValues)
{
    YEvent event(1);
    int user = 0;
    event.setEventId(5);
    event.setClientData(&user);
    event.setStopProcessing(true);
    EXPECT_EQ(5, event.getEventId());
    EXPECT_EQ(&user, event.getClientData());
    EXPECT_TRUE(event.isStopProcessing());
    event.setStopProcessing(false);
    EXPECT_FALSE(event.isStopProcessing());
}

TEST(YEvent, DestructorDeletesTheClientObjectButNotTheClientData)
{
    int deleted = 0;
    int user = 7;
    {
        YEvent event(1);
        event.setClientData(&user);
        event.setClientObject(new Tracked(&deleted));
    }
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(7, user);
}

TEST(YEvent, SetClientObjectNeitherDeletesNorKeepsTheOldOne)
{
    int deleted = 0;
    Tracked* first = new Tracked(&deleted);
    {
        YEvent event(1);
        event.setClientObject(first);
        event.setClientObject(nullptr);
        EXPECT_EQ(0, deleted);
    }
    EXPECT_EQ(0, deleted);
    delete first;
}

TEST(YEvent, CloneIsShallowAndSharesTheClientObject)
{
    int deleted = 0;
    YEvent event(3);
    int user = 0;
    event.setClientData(&user);
    event.setStopProcessing(true);
    Tracked* object = new Tracked(&deleted);
    event.setClientObject(object);
    YEvent* copy = event.clone();
    EXPECT_EQ(3, copy->getEventId());
    EXPECT_EQ(&user, copy->getClientData());
    EXPECT_EQ(object, copy->getClientObject());
    EXPECT_TRUE(copy->isStopProcessing());
    // The contract: the copy owns the object from now on, the original gives it up.
    event.setClientObject(nullptr);
    delete copy;
    EXPECT_EQ(1, deleted);
}

TEST(YEvent, CopyAndAssignmentCopyAllFields)
{
    YEvent source(9);
    int user = 0;
    source.setClientData(&user);
    source.setStopProcessing(true);
    YEvent copy(source);
    EXPECT_EQ(9, copy.getEventId());
    EXPECT_EQ(&user, copy.getClientData());
    EXPECT_TRUE(copy.isStopProcessing());
    YEvent assigned;
    assigned = source;
    EXPECT_EQ(9, assigned.getEventId());
    EXPECT_EQ(&user, assigned.getClientData());
    EXPECT_TRUE(assigned.isStopProcessing());
}

TEST(YStringClientData, HoldsItsText)
{
    YStringClientData data(QStringLiteral("payload"));
    EXPECT_EQ(QStringLiteral("payload"), data.getString());
    data.setString(QStringLiteral("other"));
    EXPECT_EQ(QStringLiteral("other"), data.getString());
    EXPECT_TRUE(YStringClientData().getString().isEmpty());
}

TEST(YStringClientData, IsOwnedByTheEvent)
{
    YEvent event(1);
    event.setClientObject(new YStringClientData(QStringLiteral("text")));
    const YStringClientData* data = dynamic_cast<YStringClientData*>(event.getClientObject());
    ASSERT_NE(nullptr, data);
    EXPECT_EQ(QStringLiteral("text"), data->getString());
}
