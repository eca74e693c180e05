#include "ll.h"

#include "support.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Ints = std::vector<int>;

int value_of(const void *data) {
    int value;
    memcpy(&value, data, sizeof value);
    return value;
}

void collect(void *data, void *param) {
    static_cast<Ints *>(param)->push_back(value_of(data));
}

BOOL always(void *, void *) {
    return TRUE;
}
BOOL is_even(void *data, void *) {
    return value_of(data) % 2 == 0;
}
BOOL differs_from(void *data, void *param) {
    return value_of(data) != *static_cast<int *>(param);
}

class List : public testing::Test {
  protected:
    List() { LL_init(&list); }
    ~List() override { LL_clear(&list); }

    LL_NODE *append(int value) { return LL_insert_tail(&list, &value, sizeof value); }

    void fill(int last) {
        for (int value = 1; value <= last; ++value)
            append(value);
    }

    LL_NODE *node(int index) const {
        LL_NODE *found = list.head;
        while (index-- > 0)
            found = found->next;
        return found;
    }

    // The values from head to tail, having checked every link and the count.
    static Ints values(const LL_TYPE &of) {
        Ints result;
        const LL_NODE *prev = nullptr;
        for (const LL_NODE *n = of.head; n != nullptr; prev = n, n = n->next) {
            EXPECT_EQ(n->prev, prev);
            result.push_back(value_of(n->data));
        }
        EXPECT_EQ(of.tail, prev);
        EXPECT_EQ(of.count, static_cast<int32_t>(result.size()));
        return result;
    }
    Ints values() const { return values(list); }

    LL_TYPE list;
};

} // namespace

TEST_F(List, IsEmptyAfterInit) {
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.count, 0);
}

TEST_F(List, FirstInsertionSetsBothEndsAndSecondCountsTwo) {
    int value = 1;
    LL_NODE *first = LL_insert_tail(&list, &value, sizeof value);
    EXPECT_EQ(list.head, first);
    EXPECT_EQ(list.tail, first);
    EXPECT_EQ(list.count, 1);
    LL_insert_head(&list, &value, sizeof value);
    EXPECT_EQ(list.count, 2);
    LL_clear(&list);
    first = LL_insert_head(&list, &value, sizeof value);
    EXPECT_EQ(list.head, first);
    EXPECT_EQ(list.tail, first);
    EXPECT_EQ(list.count, 1);
    LL_insert_tail(&list, &value, sizeof value);
    EXPECT_EQ(list.count, 2);
}

TEST_F(List, InsertionIntoAnEmptyListSetsTheCountToOne) {
    list.count = 7;
    append(1);
    EXPECT_EQ(list.count, 1);
}

TEST_F(List, OwnsACopyOfTheBlock) {
    int value = 5;
    LL_NODE *inserted = LL_insert_tail(&list, &value, sizeof value);
    EXPECT_NE(inserted->data, &value);
    value = 6;
    EXPECT_EQ(value_of(inserted->data), 5);
}

TEST_F(List, TakesBlocksOfNoBytes) {
    LL_NODE *inserted = LL_insert_tail(&list, "", 0);
    ASSERT_NE(inserted, nullptr);
    EXPECT_NE(inserted->data, nullptr);
    EXPECT_EQ(list.count, 1);
}

TEST_F(List, InsertsAtBothEnds) {
    fill(2);
    int value = 9;
    LL_insert_head(&list, &value, sizeof value);
    EXPECT_THAT(values(), ElementsAre(9, 1, 2));
}

TEST_F(List, InsertAfterPutsBehindTheNode) {
    fill(2);
    int value = 9;
    LL_insert_after(&list, list.head, &value, sizeof value);
    EXPECT_THAT(values(), ElementsAre(1, 9, 2));
    value = 8;
    EXPECT_EQ(LL_insert_after(&list, list.tail, &value, sizeof value), list.tail);
    EXPECT_THAT(values(), ElementsAre(1, 9, 2, 8));
}

TEST_F(List, InsertBeforePutsInFrontOfTheNode) {
    fill(2);
    int value = 9;
    LL_insert_before(&list, list.tail, &value, sizeof value);
    EXPECT_THAT(values(), ElementsAre(1, 9, 2));
    value = 8;
    EXPECT_EQ(LL_insert_before(&list, list.head, &value, sizeof value), list.head);
    EXPECT_THAT(values(), ElementsAre(8, 1, 9, 2));
}

TEST_F(List, InsertAfterNullAppends) {
    fill(2);
    int value = 9;
    LL_insert_after(&list, nullptr, &value, sizeof value);
    EXPECT_THAT(values(), ElementsAre(1, 2, 9));
}

TEST_F(List, InsertBeforeNullPrepends) {
    fill(2);
    int value = 9;
    LL_insert_before(&list, nullptr, &value, sizeof value);
    EXPECT_THAT(values(), ElementsAre(9, 1, 2));
}

TEST_F(List, MoveForwardExchangesWithTheSuccessor) {
    fill(4);
    LL_move_forward(&list, node(1));
    EXPECT_THAT(values(), ElementsAre(1, 3, 2, 4));
    LL_move_forward(&list, node(2));
    EXPECT_THAT(values(), ElementsAre(1, 3, 4, 2));
    LL_move_forward(&list, node(0));
    EXPECT_THAT(values(), ElementsAre(3, 1, 4, 2));
}

TEST_F(List, MoveBackwardExchangesWithThePredecessor) {
    fill(4);
    LL_move_backward(&list, node(2));
    EXPECT_THAT(values(), ElementsAre(1, 3, 2, 4));
    LL_move_backward(&list, node(1));
    EXPECT_THAT(values(), ElementsAre(3, 1, 2, 4));
    LL_move_backward(&list, node(3));
    EXPECT_THAT(values(), ElementsAre(3, 1, 4, 2));
}

TEST_F(List, MovesAListOfTwo) {
    fill(2);
    LL_move_forward(&list, list.head);
    EXPECT_THAT(values(), ElementsAre(2, 1));
    LL_move_backward(&list, list.tail);
    EXPECT_THAT(values(), ElementsAre(1, 2));
}

TEST_F(List, MovesKeepTheNodesData) {
    fill(2);
    LL_NODE *moved = list.head;
    void *data = moved->data;
    LL_move_forward(&list, moved);
    EXPECT_EQ(list.tail, moved);
    EXPECT_EQ(moved->data, data);
}

TEST_F(List, MoveForwardOnTheTailAndBackwardOnTheHeadChangeNothing) {
    fill(3);
    LL_move_forward(&list, list.tail);
    LL_move_backward(&list, list.head);
    EXPECT_THAT(values(), ElementsAre(1, 2, 3));
}

TEST_F(List, DeletesANodeAnywhere) {
    fill(4);
    LL_delete_specfic(&list, node(1));
    EXPECT_THAT(values(), ElementsAre(1, 3, 4));
    LL_delete_specfic(&list, list.head);
    EXPECT_THAT(values(), ElementsAre(3, 4));
    LL_delete_specfic(&list, list.tail);
    EXPECT_THAT(values(), ElementsAre(3));
    LL_delete_specfic(&list, list.head);
    EXPECT_THAT(values(), IsEmpty());
}

TEST_F(List, DeletesHeadAndTail) {
    fill(3);
    LL_delete_head(&list);
    EXPECT_THAT(values(), ElementsAre(2, 3));
    LL_delete_tail(&list);
    EXPECT_THAT(values(), ElementsAre(2));
    LL_delete_tail(&list);
    EXPECT_THAT(values(), IsEmpty());
    fill(1);
    LL_delete_head(&list);
    EXPECT_THAT(values(), IsEmpty());
}

TEST_F(List, DeletingFromAnEmptyListDoesNothing) {
    zeb::test::StderrCapture capture;
    LL_delete_head(&list);
    LL_delete_tail(&list);
    EXPECT_EQ(capture.finish(), "");
    EXPECT_THAT(values(), IsEmpty());
}

TEST_F(List, SelectiveDeleteRemovesThoseChosen) {
    fill(6);
    LL_selective_delete(&list, is_even, nullptr);
    EXPECT_THAT(values(), ElementsAre(1, 3, 5));
    LL_selective_delete(&list, is_even, nullptr);
    EXPECT_THAT(values(), ElementsAre(1, 3, 5));
    LL_selective_delete(&list, always, nullptr);
    EXPECT_THAT(values(), IsEmpty());
}

TEST_F(List, SelectiveDeleteReachesNodesAppendedByTheCallback) {
    fill(1);
    LL_selective_delete(
        &list,
        [](void *data, void *param) -> BOOL {
            int next = value_of(data) + 1;
            if (next <= 3)
                LL_insert_tail(static_cast<LL_TYPE *>(param), &next, sizeof next);
            return next != 3;
        },
        &list);
    EXPECT_THAT(values(), ElementsAre(2));
}

TEST_F(List, MergeBackAppendsAndLeavesTheSourceAsItWas) {
    LL_TYPE source;
    LL_init(&source);
    for (int value = 7; value <= 8; ++value)
        LL_insert_tail(&source, &value, sizeof value);
    const LL_TYPE before = source;
    fill(2);
    LL_merge_list_back(&list, &source);
    EXPECT_THAT(values(), ElementsAre(1, 2, 7, 8));
    EXPECT_EQ(source.head, before.head);
    EXPECT_EQ(source.tail, before.tail);
    EXPECT_EQ(source.count, before.count);
}

TEST_F(List, MergeBackIntoAnEmptyListTakesHeadTailAndCount) {
    LL_TYPE source;
    LL_init(&source);
    for (int value = 7; value <= 8; ++value)
        LL_insert_tail(&source, &value, sizeof value);
    const LL_TYPE before = source;
    LL_merge_list_back(&list, &source);
    EXPECT_EQ(list.head, before.head);
    EXPECT_EQ(list.tail, before.tail);
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(memcmp(&source, &before, sizeof source), 0);
}

TEST_F(List, MergeFrontPutsTheSourceFirst) {
    LL_TYPE source;
    LL_init(&source);
    for (int value = 7; value <= 8; ++value)
        LL_insert_tail(&source, &value, sizeof value);
    fill(2);
    LL_merge_list_front(&list, &source);
    EXPECT_THAT(values(), ElementsAre(7, 8, 1, 2));
    LL_TYPE empty;
    LL_init(&empty);
    LL_merge_list_front(&empty, &list);
    EXPECT_THAT(values(empty), ElementsAre(7, 8, 1, 2));
}

TEST_F(List, MergingAnEmptySourceDoesNothing) {
    LL_TYPE source;
    LL_init(&source);
    fill(2);
    LL_merge_list_back(&list, &source);
    LL_merge_list_front(&list, &source);
    EXPECT_THAT(values(), ElementsAre(1, 2));
}

TEST_F(List, TraversesBothWays) {
    fill(3);
    Ints seen;
    LL_transverse_forwards(&list, collect, &seen);
    LL_transverse_backwards(&list, collect, &seen);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 3, 2, 1));
}

TEST_F(List, ForwardsLoopFromTheHeadVisitsAllInOrder) {
    fill(5);
    Ints seen;
    LL_transverse_forwards_loop(&list, list.head, collect, &seen);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(List, ForwardsLoopFromTheThirdOfFiveWrapsAround) {
    fill(5);
    Ints seen;
    LL_transverse_forwards_loop(&list, node(2), collect, &seen);
    EXPECT_THAT(seen, ElementsAre(3, 4, 5, 1, 2));
}

TEST_F(List, BackwardsLoopFromTheThirdOfFiveWrapsAround) {
    fill(5);
    Ints seen;
    LL_transverse_backwards_loop(&list, node(2), collect, &seen);
    EXPECT_THAT(seen, ElementsAre(3, 2, 1, 5, 4));
}

TEST_F(List, LoopsWithoutAStartVisitTheWholeList) {
    fill(3);
    Ints seen;
    LL_transverse_forwards_loop(&list, nullptr, collect, &seen);
    LL_transverse_backwards_loop(&list, nullptr, collect, &seen);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3, 3, 2, 1));
    LL_clear(&list);
    LL_transverse_forwards_loop(&list, nullptr, collect, &seen);
    LL_transverse_backwards_loop(&list, nullptr, collect, &seen);
    EXPECT_EQ(seen.size(), 6u);
}

TEST_F(List, TraverseUntilOnAnEmptyListReturnsNull) {
    EXPECT_EQ(LL_transverse_until_forwards(&list, always, nullptr), nullptr);
    EXPECT_EQ(LL_transverse_until_backwards(&list, always, nullptr), nullptr);
}

TEST_F(List, TraverseUntilReturnsNullWhenNeverStopped) {
    fill(3);
    EXPECT_EQ(LL_transverse_until_forwards(&list, always, nullptr), nullptr);
    EXPECT_EQ(LL_transverse_until_backwards(&list, always, nullptr), nullptr);
}

TEST_F(List, TraverseUntilReturnsTheNodeThatStoppedIt) {
    fill(3);
    int second = 2;
    EXPECT_EQ(LL_transverse_until_forwards(&list, differs_from, &second), node(1));
    int last = 3;
    EXPECT_EQ(LL_transverse_until_backwards(&list, differs_from, &last), list.tail);
    int first = 1;
    EXPECT_EQ(LL_transverse_until_backwards(&list, differs_from, &first), list.head);
}

TEST_F(List, ClearLeavesAnEmptyListReadyForUse) {
    fill(3);
    LL_clear(&list);
    EXPECT_THAT(values(), IsEmpty());
    append(4);
    EXPECT_THAT(values(), ElementsAre(4));
}

TEST_F(List, NullArgumentsAreReportedAndDoNothing) {
    zeb::test::StderrCapture capture;
    int value = 1;
    EXPECT_EQ(LL_insert_tail(nullptr, &value, sizeof value), nullptr);
    EXPECT_EQ(LL_insert_head(&list, nullptr, sizeof value), nullptr);
    EXPECT_EQ(LL_insert_after(nullptr, nullptr, &value, sizeof value), nullptr);
    EXPECT_EQ(LL_insert_before(nullptr, nullptr, &value, sizeof value), nullptr);
    LL_clear(nullptr);
    LL_init(nullptr);
    LL_move_forward(&list, nullptr);
    LL_move_backward(nullptr, nullptr);
    LL_delete_specfic(&list, nullptr);
    LL_delete_head(nullptr);
    LL_delete_tail(nullptr);
    LL_selective_delete(&list, nullptr, nullptr);
    LL_merge_list_back(&list, nullptr);
    LL_merge_list_front(nullptr, &list);
    LL_transverse_forwards(nullptr, collect, nullptr);
    LL_transverse_backwards(&list, nullptr, nullptr);
    LL_transverse_forwards_loop(nullptr, nullptr, collect, nullptr);
    LL_transverse_backwards_loop(nullptr, nullptr, collect, nullptr);
    EXPECT_EQ(LL_transverse_until_forwards(nullptr, always, nullptr), nullptr);
    EXPECT_EQ(LL_transverse_until_backwards(&list, nullptr, nullptr), nullptr);
    const std::string text = capture.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
    EXPECT_THAT(text, HasSubstr("assertion failed (ll.cpp:"));
    EXPECT_THAT(text, HasSubstr("): list != nullptr\n"));
    EXPECT_EQ(list.count, 0);
}

TEST_F(List, AnAllocationFailureIsReportedAndLeavesTheListAlone) {
    fill(1);
    zeb::test::StderrCapture capture;
    // No host has this much: the node is had, its data block is not.
    EXPECT_EQ(LL_insert_tail(&list, "", SIZE_MAX), nullptr);
    EXPECT_THAT(capture.finish(), HasSubstr(": Cannot allocate memory\n"));
    EXPECT_THAT(values(), ElementsAre(1));
}
