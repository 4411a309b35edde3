#pragma once

// A list view for tests: it keeps a selection in the order rows were selected, tells the model
// about changes as the host's view does, and counts what the model asks of it.

#include "Implements.h"

#include "framework/interfaces/IItemModel.h"

#include <vector>

namespace ViewTests {

class TestItemView : public Implements<KVX::IItemView>
{
public:
    /// Attaches itself to `model`; detach() before the test ends breaks the mutual references.
    void attach(KVX::IItemModel* model)
    {
        model_ = model;
        model_->attachView(this);
    }
    void detach()
    {
        if (model_)
            model_->detachView(this);
        model_ = nullptr;
    }

    /// Selects rows as a user clicking them in this order would.
    void select(std::vector<KVX::int32> rows)
    {
        selection = std::move(rows);
        if (model_)
            model_->onSelectionChanged();
    }

    std::vector<KVX::int32> selection;
    std::vector<KVX::int32> selectRequests;
    int invalidations = 0;
    std::vector<std::pair<KVX::int32, KVX::int32>> edits;

    KVX::int32 countSelectedRows() override { return static_cast<KVX::int32>(selection.size()); }
    KVX::int32 getSelectedRow(KVX::int32 index) override
    {
        return index >= 0 && index < countSelectedRows() ? selection[static_cast<size_t>(index)] : -1;
    }
    KVX::tresult selectRow(KVX::int32 row) override
    {
        selectRequests.push_back(row);
        if (!model_ || row < 0 || row >= model_->countRows())
            return KVX::kInvalidArgument;
        select({row});
        return KVX::kResultOk;
    }
    KVX::tresult invalidate() override
    {
        ++invalidations;
        return KVX::kResultOk;
    }
    KVX::tresult editCell(KVX::int32 row, KVX::int32 column) override
    {
        edits.emplace_back(row, column);
        return KVX::kResultOk;
    }

private:
    KVX::IItemModel* model_ = nullptr; // the model holds this view while attached
};

} // namespace ViewTests
