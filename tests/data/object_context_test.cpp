#include "quomi/data/store_file.h"
#include "tests/data/store_support.h"

#include <SQLiteCpp/Statement.h>

namespace quomi::test {
namespace {

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

TEST_F(Contexts, EvictionNeverLosesAChange) {
    for (const char* id : {"g0", "g1", "g2"}) context.insert(geofence(id, {"r"}));
    ASSERT_TRUE(context.save());
    static const Query<QuomiGeofence> all("ORDER BY \"_id\"");
    for (const auto& place : context.fetch(all)) {
        place->rules().front()->triggersCount = 1;  // nobody holds place or rule afterwards
        place->entryCount = 2;
    }
    std::weak_ptr<QuomiGeofence> first = byId(context, "g0");
    EXPECT_FALSE(first.expired()) << "held until the next fetch";
    const auto rule = byId(context, "g1")->rules().front();
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(rule->ruleOwner(), byId(context, "g1")) << "an owner lives as long as its rule is held";
    ASSERT_TRUE(context.save());
    EXPECT_EQ(saved("triggersCount", "QuomiGeofenceRuleWithActions"), "1 1 1");
    EXPECT_EQ(saved("entryCount"), "2 2 2");
    rule->triggersCount = 9;
    ASSERT_TRUE(context.save());
    EXPECT_EQ(saved("triggersCount", "QuomiGeofenceRuleWithActions"), "1 9 1");
}

TEST_F(Contexts, InBulkASaveLooksAtWhatWasTouchedAndTheNextAtAll) {
    for (const bool inChild : {false, true}) {
        for (const char* id : {"a", "b"}) context.insert(geofence(id));
        ASSERT_TRUE(context.save());
        ObjectContext child(context);
        auto& used = inChild ? child : context;
        const auto touched = byId(used, "a");
        const auto other = byId(used, "b");
        const auto save = [&] { return used.save() && context.save(); };
        {
            const ObjectContext::Bulk bulk(used);
            touched->entryCount = other->entryCount = 1;
            used.touch(touched);
            EXPECT_TRUE(save());
            EXPECT_EQ(saved("entryCount"), "1 0") << inChild;
            touched->entryCount = 2;
            EXPECT_TRUE(save());
            EXPECT_EQ(saved("entryCount"), "2 0") << inChild << ": touched until the end";
        }
        EXPECT_TRUE(save());
        EXPECT_EQ(saved("entryCount"), "2 1") << inChild;
        context.removeAll(entityType<QuomiGeofence>());
    }
}

TEST_F(Contexts, MembersAndOwners) {
    context.insert(geofence("a", {"r1"}));
    context.insert(geofence("b"));
    ASSERT_TRUE(context.save());
    auto owner = byId(context, "a");
    const auto rule = std::make_shared<QuomiGeofenceRuleWithActions>();
    rule->ruleId = "r2";
    owner->addActionObject(rule);
    owner->addActionObject(rule);
    byId(context, "b")->addActionObject(rule);
    owner.reset();
    ASSERT_TRUE(context.save());
    EXPECT_EQ(rule->geofence()->geofenceId, "a") << "it belongs to one place, once";
    EXPECT_EQ(rule->geofence()->rules().size(), 2U);
    EXPECT_EQ(saved("ruleId || geofence", "QuomiGeofenceRuleWithActions"), "r11 r21");

    owner = byId(context, "a");
    context.remove(*owner->rules().front());
    EXPECT_EQ(owner->rules().size(), 1U);
    context.insert(owner);  // is there already
    context.remove(*owner);
    context.remove(*owner);
    context.insert(owner);  // and back, with its rules
    ASSERT_TRUE(context.save());
    EXPECT_EQ(saved("ruleId", "QuomiGeofenceRuleWithActions"), "r2");
    const auto passing = geofence("c", {"r3"});
    context.insert(passing);
    context.remove(*passing);
    ASSERT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId"), "a b");
    EXPECT_TRUE(context.removeAll(entityType<QuomiGeofence>()));
    EXPECT_EQ(rule->context(), nullptr);
    context.rollback();
    EXPECT_EQ(saved("geofenceId"), "a b");
    EXPECT_EQ(byId(context, "a")->rules().front()->ruleId, "r2");
}

TEST_F(Contexts, WhatComesAfterARefusalIsDroppedWithIt) {
    context.insert(geofence("bad", {"r"}));
    byId(context, "bad")->rules().front()->ruleId.reset();
    EXPECT_EQ(byId(context, "bad"), nullptr) << "a fetch goes on with what is saved";
    const auto later = geofence("later");
    context.insert(later);
    EXPECT_EQ(byId(context, "later"), nullptr);
    EXPECT_EQ(later->context(), nullptr);
    EXPECT_FALSE(context.save(&error));
    EXPECT_EQ(error->code, 600);
    context.insert(later);
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId"), "later");
}

/// A table that is gone stands for a disk that cannot be read.
TEST_F(Contexts, WhatCannotBeReadIsAnError) {
    context.insert(geofence("a", {"r"}));
    context.insert(geofence("b"));
    ASSERT_TRUE(context.save());
    const auto a = byId(context, "a");
    a->entryCount = 1;
    host.connect().exec("PRAGMA foreign_keys = OFF; DROP TABLE QuomiGeofenceRuleWithActions");
    const auto fails = [this](bool isDone) {
        const auto failure = std::exchange(error, std::nullopt);
        return !isDone && failure && failure->code == 600;
    };
    EXPECT_TRUE(fails(!a->rules(&error).empty()));
    EXPECT_TRUE(fails(a->resetAllCounters(&error)));
    EXPECT_EQ(a->entryCount, 1);
    const auto next = geofence("a");
    EXPECT_TRUE(fails(next->copyCounters(*a, at(0), &error)));
    EXPECT_EQ(next->entryCount, 0);
    EXPECT_TRUE(fails(a->addActionObject(std::make_shared<QuomiGeofenceRuleWithActions>(), &error)));
    EXPECT_TRUE(fails(context.objectWithID<QuomiGeofenceRuleWithActions>(1, &error) != nullptr));
    a->groupHistory = {at(1)};
    EXPECT_TRUE(fails(QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(
        *a, std::vector<std::shared_ptr<RuleOwner>>{a}, at(9), &error)));
    EXPECT_THAT(a->groupHistory, ElementsAre(at(1)));
    EXPECT_TRUE(context.save()) << "nothing of all that waits";

    const auto withRule = geofence("c", {"r2"});
    EXPECT_TRUE(fails(context.insert(withRule, &error)));
    EXPECT_EQ(withRule->context(), nullptr);
    EXPECT_EQ(byId(context, "c"), nullptr);
    EXPECT_TRUE(context.insert(geofence("d"), &error));

    ObjectContext child(context);
    byId(child, "b")->latitude = 7;
    byId(child, "a")->latitude = 7;
    context.save();
    host.connect().exec("DROP TABLE QuomiGeofence");
    EXPECT_TRUE(fails(child.save(&error)));
}

/// Another process of the app writes in between.
TEST_F(Contexts, KeysAreFreeWhoeverElseWrites) {
    ASSERT_TRUE(context.save());
    context.insert(geofence("a"));
    ASSERT_TRUE(context.save());
    auto other = host.connect();
    other.exec("INSERT INTO QuomiGeofence (geofenceId, latitude, longitude, radius) VALUES ('theirs', 0, 0, 0)");
    context.insert(geofence("b"));
    EXPECT_TRUE(context.save(&error));
    other.exec("DELETE FROM QuomiGeofence");
    const auto last = geofence("c");
    context.insert(last);
    EXPECT_EQ(last->objectID(), 4) << "not given twice, even when all rows are gone";
}

TEST_F(Contexts, AChildWhoseParentHasRemovedWhatItChanged) {
    context.insert(geofence("a", {"r1"}));
    context.insert(geofence("b"));
    ASSERT_TRUE(context.save());
    ObjectContext child(context);
    const auto a = byId(child, "a");
    a->latitude = 1;
    addRules<QuomiGeofenceRuleWithActions>(*a, {"r2"});
    byId(child, "b")->latitude = 2;  // held by nobody, and kept
    child.remove(*byId(child, "b"));
    context.remove(*byId(context, "a"));
    context.remove(*byId(context, "b"));
    EXPECT_TRUE(child.save(&error));
    EXPECT_TRUE(context.save(&error));
    EXPECT_EQ(saved("geofenceId"), "");
    EXPECT_EQ(saved("ruleId", "QuomiGeofenceRuleWithActions"), "") << "no rule without its place";
    EXPECT_EQ(byId(child, "a"), nullptr);
}

TEST_F(Contexts, AChildThatEndsOrIsRefused) {
    context.insert(geofence("a"));
    ASSERT_TRUE(context.save());
    {
        ObjectContext child(context);
        byId(child, "a")->latitude = 1;
        EXPECT_EQ(byId(child, "a")->latitude, 1) << "held by nobody, changed, and not forgotten";
        child.insert(geofence("b", {"r"}));
    }
    EXPECT_TRUE(context.save());
    EXPECT_EQ(saved("geofenceId || latitude"), "a0.0");

    ObjectContext child(context);
    const auto bad = geofence("bad", {"r"});
    bad->rules().front()->ruleId.reset();
    child.insert(bad);
    EXPECT_EQ(byId(child, "a"), nullptr);
    EXPECT_TRUE(child.save());
    EXPECT_FALSE(context.save(&error));
    EXPECT_EQ(error->code, 600);
    EXPECT_NE(byId(context, "a"), nullptr);
}

}  // namespace
}  // namespace quomi::test
