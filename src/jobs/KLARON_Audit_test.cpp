#include "jobs/KLARON_Audit.h"

#include "internal/TestBed.h"
#include "jobs/VELM_Job.h"

#include <gtest/gtest.h>
#include <thread>

using base::Error;
using base::Value;

namespace {

struct Thing : base::Object {
    std::string className() const override { return "Thing"; }
    bool isEqual(const base::Object&) const override { return true; } // records go by identity all the same
};

struct NamedThing : Thing, KLARON_Audited {
    std::vector<std::string> auditedProductKeys() const override { return {"thumbnail", "proof"}; }
    std::optional<std::string> auditedDisplayName() const override { return "Order 7"; }
};

} // namespace

TEST(Audit, StoresByIdentityAndKeepsTheObject) {
    auto first = std::make_shared<Thing>();
    const auto second = std::make_shared<Thing>();
    KLARON_Audit::end(first.get());
    KLARON_Audit::auditedAddError(first.get(), Error{"d", 1, "lost"});
    KLARON_Audit::auditedSetProduct(first.get(), "p", "thumbnail");
    EXPECT_TRUE(KLARON_Audit::store().empty());

    KLARON_Audit::start(first);
    KLARON_Audit::auditedAddError(first.get(), Error{"d", 1, "kept"});
    KLARON_Audit::auditedSetProduct(first.get(), "p", "thumbnail");
    KLARON_Audit::auditedSetProduct(second.get(), "q", "thumbnail");
    EXPECT_FALSE(KLARON_Audit::audit(second.get()));
    const auto record = KLARON_Audit::audit(first.get());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->errors().size(), 1U);
    EXPECT_EQ(record->objectForKeyedSubscript("thumbnail"), Value("p"));
    EXPECT_FALSE(record->start());
    EXPECT_EQ(record->uuid(), "");

    const std::weak_ptr<Thing> kept = first;
    const base::Object* identity = first.get();
    first.reset();
    EXPECT_FALSE(kept.expired());
    KLARON_Audit::end(identity);
    EXPECT_TRUE(kept.expired() && record->end());

    // A job that its record alone keeps asks the store from within the store's own operation.
    KLARON_Audit::start(VELM_Job::init());
    identity = KLARON_Audit::store().begin()->first.get();
    KLARON_Audit::end(identity);
}

TEST(Audit, BuildsATreeThatCopies) {
    KLARON_Audit::pop(nullptr);
    const auto root = KLARON_Audit::initForObject(std::make_shared<NamedThing>().get());
    KLARON_Audit::push(root);
    const auto child = KLARON_Audit::initForObject(std::make_shared<Thing>().get());
    KLARON_Audit::push(child);
    const auto grandchild = KLARON_Audit::initForObject(nullptr);
    KLARON_Audit::pop(root); // whichever is given, the last one goes
    EXPECT_EQ(KLARON_Audit::current(), root);
    KLARON_Audit::clearStack();

    EXPECT_EQ(root->displayName(), "Order 7");
    EXPECT_EQ(root->providerKeys(), (base::Array{"thumbnail", "proof"}));
    EXPECT_EQ(child->displayName(), "Thing");
    EXPECT_EQ(grandchild->displayName(), "unknown object type");
    EXPECT_EQ(child->parent(), root);
    EXPECT_EQ(grandchild->uuid(), root->uuid());
    EXPECT_NE(KLARON_Audit::initForObject(nullptr)->uuid(), root->uuid());

    child->addProduct("a product");
    EXPECT_EQ(child->errors(), base::Array{"a product"});
    EXPECT_TRUE(child->products().empty());
    child->setObject("p", "proof");
    child->setEnd(child->start());
    const auto copy = child->copyWithZone();
    ASSERT_TRUE(copy) << copy.error().localizedDescription;
    EXPECT_EQ((*copy)->parent(), root);
    EXPECT_EQ((*copy)->uuid(), root->uuid());
    EXPECT_EQ((*copy)->displayName(), "Thing");
    EXPECT_EQ((*copy)->errors(), child->errors());
    EXPECT_EQ((*copy)->products(), child->products());
    EXPECT_FALSE((*copy)->start() || (*copy)->end());
    ASSERT_EQ((*copy)->children().size(), 1U);
    EXPECT_EQ((*copy)->children()[0]->parent(), *copy);
    EXPECT_NE((*copy)->children()[0], grandchild);
}

TEST(Audit, IsSafeFromManyThreads) {
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([] {
            for (int turn = 0; turn < 100; ++turn) {
                const auto job = VELM_Job::init();
                KLARON_Audit::start(job);
                KLARON_Audit::push(KLARON_Audit::initForObject(job.get()));
                KLARON_Audit::pop(nullptr);
                KLARON_Audit::end(job.get());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(KLARON_Audit::store().empty() && KLARON_Audit::stack().empty());
}
