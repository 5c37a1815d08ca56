#pragma once

#include <QList>
#include <basestore.h>
#include <memory>

// A store that keeps every action it is handed, for tests that check what
// others dispatched.
class CollectingStore : public Bureau::BaseStore
{
public:
    QList<std::shared_ptr<Bureau::Action>> actions;

    void process(std::shared_ptr<Bureau::Action> action) override { actions << action; }
    void start() override { emit started(); }
    void stop() override { emit stopped(); }

    template <typename Type> QList<std::shared_ptr<Bureau::Action>> ofType(Type type) const
    {
        QList<std::shared_ptr<Bureau::Action>> found;
        for (const auto &action : actions)
            if (action->type == int(type))
                found << action;
        return found;
    }
};
