#include "zebmsgd/filters.h"

#include "zebmsgd_support.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace zebmsgd;

namespace {

// One message as filters see it.
struct Case {
    Message message;
    std::string source = "cpc1";
    Announcement announced;
    Case() {
        message.name = "MSG_LOG_INFO"; // number 160, of the class "log"
        message.destination = "zeblogd";
        announced.made = true;
        announced.type = "cpc_3010";
        announced.tags = {"inlet", "roof"};
    }
    Subject subject() const { return {message, source, announced}; }
};

Filter accepting() {
    Filter filter;
    filter.accept = true;
    return filter;
}

Filter rejecting() {
    return {};
}

TEST(Filters, WithoutFiltersEverythingIsAccepted) {
    EXPECT_TRUE(FilterList().accepts(Case().subject()));
}

TEST(Filters, AFilterOfEmptyPatternsMatchesAnything) {
    FilterList list;
    list.add(rejecting());
    EXPECT_FALSE(list.accepts(Case().subject()));
}

TEST(Filters, TheFirstMatchDecides) {
    FilterList list;
    Filter first = accepting();
    first.source = "cpc*";
    list.add(first);
    list.add(rejecting());
    Case from_cpc, from_neph;
    from_neph.source = "neph";
    EXPECT_TRUE(list.accepts(from_cpc.subject()));
    EXPECT_FALSE(list.accepts(from_neph.subject()));
}

TEST(Filters, ARejectionAheadOfAnAcceptanceWins) {
    FilterList list;
    Filter first = rejecting();
    first.source = "cpc1";
    list.add(first);
    list.add(accepting());
    EXPECT_FALSE(list.accepts(Case().subject()));
}

TEST(Filters, WhenNoneMatchesAnAcceptingFilterMeansRejection) {
    FilterList list;
    Filter other = accepting();
    other.source = "neph";
    list.add(other);
    EXPECT_FALSE(list.accepts(Case().subject()));
}

TEST(Filters, WhenNoneMatchesOnlyRejectingFiltersMeanAcceptance) {
    FilterList list;
    Filter other = rejecting();
    other.source = "neph";
    list.add(other);
    EXPECT_TRUE(list.accepts(Case().subject()));
}

TEST(Filters, AllPatternsOfAFilterMustMatch) {
    Filter filter;
    filter.source = "cpc?";
    filter.destination = "zeb*";
    filter.instrument_type = "cpc_*";
    filter.tag = "roof";
    filter.metatype = "log";
    filter.type = 160;
    EXPECT_TRUE(filter.matches(Case().subject()));
    const auto spoil = [&](auto change) {
        Filter spoiled = filter;
        change(spoiled);
        return spoiled.matches(Case().subject());
    };
    EXPECT_FALSE(spoil([](Filter &f) { f.source = "neph"; }));
    EXPECT_FALSE(spoil([](Filter &f) { f.destination = "gps"; }));
    EXPECT_FALSE(spoil([](Filter &f) { f.instrument_type = "neph"; }));
    EXPECT_FALSE(spoil([](Filter &f) { f.tag = "cellar"; }));
    EXPECT_FALSE(spoil([](Filter &f) { f.metatype = "cnc"; }));
    EXPECT_FALSE(spoil([](Filter &f) { f.type = 161; }));
}

TEST(Filters, PatternsHeedCase) {
    Filter filter;
    filter.source = "CPC1";
    EXPECT_FALSE(filter.matches(Case().subject()));
}

TEST(Filters, AnyOfTheSourcesTagsSuffices) {
    Filter filter;
    for (const char *tag : {"inlet", "roof", "ro*"}) {
        filter.tag = tag;
        EXPECT_TRUE(filter.matches(Case().subject())) << tag;
    }
}

TEST(Filters, ASourceThatAnnouncedNothingHasNoTagsAndNoType) {
    Case silent;
    silent.announced = {};
    Filter by_tag, by_type;
    by_tag.tag = "*";
    by_type.instrument_type = "cpc*";
    EXPECT_FALSE(by_tag.matches(silent.subject()));
    EXPECT_FALSE(by_type.matches(silent.subject()));
}

TEST(Filters, ATypeIsTheNumberOfTheNameInTheServersCatalogue) {
    Case known;
    Filter filter;
    filter.type = 160;
    EXPECT_TRUE(filter.matches(known.subject()));
    filter.type = 0;
    EXPECT_FALSE(filter.matches(known.subject()));
    known.message.name = "MSG_AE33_AVERAGE";
    EXPECT_TRUE(filter.matches(known.subject()));
}

TEST(Filters, AMessageThatTheCatalogueLacksHasNoNumberAndNoClass) {
    Case unknown;
    unknown.message.name = "MSG_OF_A_NEWER_STATION";
    Filter filter;
    EXPECT_TRUE(filter.matches(unknown.subject()));
    filter.type = 0;
    EXPECT_FALSE(filter.matches(unknown.subject()));
    filter.type = -1;
    filter.metatype = "log";
    EXPECT_FALSE(filter.matches(unknown.subject()));
}

TEST(Filters, ANameWithAnEmbeddedNulIsNotTheNameBeforeIt) {
    EXPECT_NE(find_entry("MSG_LOG_INFO"), nullptr);
    EXPECT_EQ(find_entry(std::string_view("MSG_LOG_INFO\0x", 14)), nullptr);
    EXPECT_EQ(find_entry(std::string(70000, 'M')), nullptr);
}

TEST(Filters, RemovingByNumberLeavesTheOthersInTheirOrder) {
    FilterList list;
    for (const DWORD uid : {1u, 2u, 3u}) {
        Filter filter = uid == 3 ? accepting() : rejecting();
        filter.uid = uid;
        list.add(filter);
    }
    list.remove(1);
    EXPECT_FALSE(list.accepts(Case().subject()));
    list.remove(2);
    EXPECT_TRUE(list.accepts(Case().subject()));
    list.remove(9);
    EXPECT_EQ(list.size(), 1u);
}

TEST(Filters, WithItsLastAcceptingFilterRemovedAListAcceptsWhatNoneMatches) {
    FilterList list;
    Filter other = accepting();
    other.source = "neph";
    other.uid = 7;
    list.add(other);
    ASSERT_FALSE(list.accepts(Case().subject()));
    list.remove(7);
    EXPECT_TRUE(list.accepts(Case().subject()));
}

TEST(Filters, AfterClearingEverythingIsAccepted) {
    FilterList list;
    list.add(rejecting());
    Filter other = accepting();
    other.source = "neph";
    list.add(other);
    list.clear();
    EXPECT_TRUE(list.accepts(Case().subject()));
}

TEST(Filters, ARecordWithoutTerminatorsIsReadToTheEndOfItsFields) {
    NET_SERVER_FilterAdd record;
    memset(&record, 'x', sizeof record);
    record.type_match = 5;
    record.target = 0;
    const Filter filter = Filter::of_record(record);
    EXPECT_EQ(filter.source.size(), 32u);
    EXPECT_EQ(filter.instrument_type.size(), 32u);
    EXPECT_EQ(filter.tag.size(), 256u);
    EXPECT_FALSE(filter.accept);
    EXPECT_EQ(filter.type, 5);
}

} // namespace
