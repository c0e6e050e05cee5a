#include "quomi/data/store_file.h"
#include "tests/data/store_support.h"

#include <SQLiteCpp/Statement.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::test {
namespace {

std::shared_ptr<QuomiGeofence> geofence(const std::string& id, std::initializer_list<const char*> ruleIds = {}) {
    auto geofence = std::make_shared<QuomiGeofence>();
    geofence->geofenceId = id;
    for (const char* ruleId : ruleIds) {
        auto rule = std::make_shared<QuomiGeofenceRuleWithActions>();
        rule->ruleId = ruleId;
        rule->trigger = "on_entry";
        geofence->addActionObject(rule);
    }
    return geofence;
}

class Contexts : public testing::Test {
protected:
    std::shared_ptr<QuomiGeofence> byId(ObjectContext& from, const std::string& id) {
        static const Query<QuomiGeofence> query("WHERE \"geofenceId\" = ?");
        return from.fetchFirst(query, {id});
    }
    /// What another connection reads of a table's column.
    std::string saved(const std::string& column, const std::string& table = "QuomiGeofence") {
        auto database = host.connect();
        return database.execAndGet("SELECT group_concat(" + column + ", ' ') FROM " + table).getString();
    }

    StoreHost host;
    std::unique_ptr<StoreFile> file = StoreFile::open(host.file, false, host.platform.files, host.errors, nullptr);
    ObjectContext context{*file};
    std::optional<Error> error;
};

TEST_F(Contexts, OneIdentityAndChangesSeenBeforeTheyAreSaved) {
    auto made = geofence("a", {"r1", "r2"});
    context.insert(made);
    EXPECT_EQ(byId(context, "a"), made);
    made->geofenceId = "b";
    made->rules().front()->triggersCount = 7;
    EXPECT_EQ(byId(context, "a"), nullptr);
    EXPECT_EQ(byId(context, "b"), made);
    EXPECT_EQ(saved("geofenceId"), "") << "nothing is committed before the save";
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId"), "b");
    EXPECT_EQ(saved("triggersCount", "QuomiGeofenceRuleWithActions"), "7 0");

    made->latitude = 3;
    made.reset();  // nobody holds it: what changed is kept all the same
    EXPECT_EQ(byId(context, "b")->latitude, 3);
    EXPECT_EQ(byId(context, "b")->rules().back()->ruleId, "r2");
    EXPECT_EQ(byId(context, "b")->rules().back()->ruleOwner(), byId(context, "b"));
}

TEST_F(Contexts, RemovalTakesTheMembersAlong) {
    const auto made = geofence("a", {"r1"});
    const auto rule = made->rules().front();
    context.insert(made);
    ASSERT_TRUE(context.save());
    context.remove(*made);
    EXPECT_EQ(made->context(), nullptr);
    EXPECT_EQ(rule->context(), nullptr);
    EXPECT_EQ(byId(context, "a"), nullptr);
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("_id"), "");
    EXPECT_EQ(saved("_id", "QuomiGeofenceRuleWithActions"), "");
    const auto again = geofence("b");
    context.insert(again);
    EXPECT_GT(again->objectID(), made->objectID()) << "keys are not given twice";
}

TEST_F(Contexts, ASaveThatIsRefusedDropsEverything) {
    context.insert(geofence("kept"));
    ASSERT_TRUE(context.save());
    const auto kept = byId(context, "kept");
    kept->latitude = 5;
    const auto bad = geofence("bad", {"r"});
    bad->rules().front()->ruleId.reset();
    context.insert(bad);
    EXPECT_FALSE(context.save(&error));
    EXPECT_EQ(error->code, 600);
    EXPECT_EQ(kept->context(), nullptr);
    EXPECT_EQ(byId(context, "bad"), nullptr);
    EXPECT_EQ(byId(context, "kept")->latitude, 0);
    EXPECT_TRUE(context.save()) << "one bad answer does not poison the saves after it";
}

TEST_F(Contexts, ABusyStoreLosesNothing) {
    const auto made = geofence("a");
    context.insert(made);
    auto other = host.connect();
    other.exec("BEGIN IMMEDIATE");
    EXPECT_FALSE(context.save(&error));
    other.exec("ROLLBACK");
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId"), "a");
}

TEST_F(Contexts, AChildChangesNothingOutsideBeforeItsSave) {
    context.insert(geofence("a", {"r1"}));
    context.insert(geofence("b"));
    ASSERT_TRUE(context.save());
    const auto original = byId(context, "a");
    original->radius = 9;
    ObjectContext child(context);
    const auto a = byId(child, "a");
    ASSERT_NE(a, nullptr);
    EXPECT_NE(a, original);
    EXPECT_EQ(a->radius, 9) << "the parent's changes are seen";
    a->latitude = 1;
    a->rules().front()->triggersCount = 2;
    child.remove(*byId(child, "b"));
    const auto c = geofence("c", {"r3"});
    child.insert(c);
    EXPECT_EQ(byId(child, "b"), nullptr);
    EXPECT_EQ(byId(child, "c"), c);
    EXPECT_EQ(child.count(entityType<QuomiGeofence>()), 2);
    EXPECT_EQ(original->latitude, 0);
    EXPECT_NE(byId(context, "b"), nullptr);
    EXPECT_EQ(byId(context, "c"), nullptr);

    EXPECT_TRUE(child.save());
    EXPECT_EQ(original->latitude, 1) << "the same object as before";
    EXPECT_EQ(original->radius, 9);
    EXPECT_EQ(original->rules().front()->triggersCount, 2);
    EXPECT_EQ(byId(context, "b"), nullptr);
    EXPECT_EQ(byId(context, "c")->objectID(), c->objectID());
    EXPECT_EQ(byId(context, "c")->rules().front()->ruleId, "r3");
    EXPECT_EQ(saved("latitude"), "0.0 0.0") << "only the parent's save commits";
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId"), "a c");
}

}  // namespace
}  // namespace quomi::test
