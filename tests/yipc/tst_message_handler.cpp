#include "message.h"
#include "message_handler.h"

#include <gtest/gtest.h>

namespace {

int deletedHandlers = 0;

class EchoHandler : public YMessageHandler
{
public:
    ~EchoHandler() override { ++deletedHandlers; }
    YMessage* handleMessage(YMessage* message) override
    {
        YMessage* response = new YMessage;
        response->setStringType(message->getStringType());
        return response;
    }
};

} // namespace

TEST(YMessageHandlerFactory, SingletonTable)
{
    YMessageHandlerFactory* factory = YMessageHandlerFactory::getInstance();
    EXPECT_EQ(factory, YMessageHandlerFactory::getInstance());
    EXPECT_EQ(nullptr, factory->getHandler("unknown"));

    EchoHandler first;
    EchoHandler second;
    factory->registerMessageHandler("YMessage", &first);
    EXPECT_EQ(&first, factory->getHandler("YMessage"));
    factory->registerMessageHandler("YMessage", &second);
    EXPECT_EQ(&second, factory->getHandler("YMessage"));
    factory->deregisterMessageHandler("YMessage");
    EXPECT_EQ(nullptr, factory->getHandler("YMessage"));
    EXPECT_EQ(0, deletedHandlers);
}

TEST(YMessageHandlerFactory, StartHandlerStandsUnderItsDummyName)
{
    EXPECT_EQ(QStringLiteral("START_MESSAGE_DUMMY_NAME"),
        YMessageHandlerFactory::START_MESSAGE_DUMMY_NAME);
    YMessageHandlerFactory* factory = YMessageHandlerFactory::getInstance();
    EchoHandler start;
    factory->registerStartMessageHandler(&start);
    EXPECT_EQ(&start, factory->getStartMessageHandler());
    EXPECT_EQ(&start, factory->getHandler("START_MESSAGE_DUMMY_NAME"));
    factory->deregisterStartMessageHandler();
    EXPECT_EQ(nullptr, factory->getStartMessageHandler());
}

TEST(YMessageHandlerFactory, FreeAllHandlersDeletesEachOnce)
{
    YMessageHandlerFactory* factory = YMessageHandlerFactory::getInstance();
    deletedHandlers = 0;
    EchoHandler* shared = new EchoHandler;
    factory->registerMessageHandler("a", shared);
    factory->registerMessageHandler("b", shared);
    factory->registerStartMessageHandler(new EchoHandler);
    factory->freeAllHandlers();
    EXPECT_EQ(2, deletedHandlers);
    EXPECT_EQ(nullptr, factory->getHandler("a"));
    EXPECT_EQ(nullptr, factory->getStartMessageHandler());
}
