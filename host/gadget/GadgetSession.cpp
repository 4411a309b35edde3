#include "host/gadget/GadgetSession.h"

#include "framework/command/Menu.h"
#include "framework/component/Message.h"
#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "framework/data/Url.h"
#include "framework/data/UrlObject.h"
#include "framework/interfaces/IGraphicsPort.h"
#include "framework/interfaces/IItemView.h"
#include "framework/interfaces/IParameter.h"
#include "framework/interfaces/ISubject.h"
#include "framework/list/DragSession.h"
#include "framework/services/GuiServices.h"
#include "framework/services/IGraphicsHelper.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <unordered_map>

namespace Host {

using namespace KVX;

namespace {

template <class T> T* interfaceOf(IUnknown* object)
{
    void* result = nullptr;
    if (!object || object->queryInterface(T::kIID, &result) != kResultOk)
        return nullptr;
    static_cast<T*>(result)->release(); // its owner keeps it alive
    return static_cast<T*>(result);
}

std::string hexColor(uint32 rgba)
{
    char text[16];
    std::snprintf(text, sizeof text, "#%08x", unsigned(rgba));
    return text;
}

Variant arrayVariant(const Ref<AttributeArray>& array) { return Variant(static_cast<Object*>(array.get())); }
Variant objectVariant(const Ref<Attributes>& object) { return Variant(static_cast<Object*>(object.get())); }

Variant valueOf(const ValueRecord& record)
{
    switch (record.type)
    {
    case ValueRecord::kInt: return Variant(record.intValue);
    case ValueRecord::kDouble: return Variant(record.doubleValue);
    case ValueRecord::kString: return Variant(String(std::string(record.text ? record.text : "", record.textLength).c_str()));
    default: return Variant();
    }
}

/// Records what a list view draws: filled rectangles and texts with their font, colour and
/// alignment, in the order drawn, as the page paints them again. Texts are measured with the
/// graphics module's metrics, so the model shortens what does not fit as it would on screen.
/// While the model paints a cell, the texts it draws are also kept as that cell's words: what
/// the page reads aloud is what the model painted, not a guess from where the text landed.
class DrawingRecorder : public Object, public IGraphicsPort
{
public:
    /// Widths already measured, by font and text: the table is drawn again for every change the
    /// page is shown, and most of its texts are the same each time.
    using Widths = std::unordered_map<std::string, double>;

    DrawingRecorder(Widths& widths, int32 rows, int32 columns)
        : widths_(widths), cells_(static_cast<size_t>(std::max(rows, 0)),
                                  std::vector<std::string>(static_cast<size_t>(std::max(columns, 0))))
    {
    }

    Ref<AttributeArray> operations = makeRef<AttributeArray>();

    /// The texts drawn from now until endCell belong to the cell (`row`, `column`).
    void beginCell(int32 row, int32 column)
    {
        const bool inside =
            row >= 0 && size_t(row) < cells_.size() && column >= 0 && size_t(column) < cells_[size_t(row)].size();
        cell_ = inside ? &cells_[size_t(row)][size_t(column)] : nullptr;
    }
    void endCell() { cell_ = nullptr; }
    /// The words of every cell, row by row: the texts the model drew into it, joined by a blank.
    Ref<AttributeArray> cellTexts() const
    {
        auto rows = makeRef<AttributeArray>();
        for (const std::vector<std::string>& row : cells_)
        {
            auto texts = makeRef<AttributeArray>();
            for (const std::string& text : row)
                texts->append(Variant(text.c_str()));
            rows->append(arrayVariant(texts));
        }
        return rows;
    }

    tresult fillRect(const RectRecord& rect, uint32 rgba) override
    {
        auto operation = makeRef<AttributeArray>();
        for (Variant value : {Variant("r"), Variant(int64(rect.left)), Variant(int64(rect.top)),
                              Variant(int64(rect.right - rect.left)), Variant(int64(rect.bottom - rect.top)),
                              Variant(hexColor(rgba).c_str())})
            operation->append(value);
        operations->append(arrayVariant(operation));
        return kResultOk;
    }
    tresult drawText(const RectRecord& rect, const char* text, const FontRecord& font, uint32 rgba, int32 alignment) override
    {
        if (!text || alignment < kAlignLeft || alignment > kAlignRight)
            return kInvalidArgument;
        auto operation = makeRef<AttributeArray>();
        const std::string face(font.face, strnlen(font.face, sizeof font.face));
        for (Variant value : {Variant("t"), Variant(int64(rect.left)), Variant(int64(rect.top)),
                              Variant(int64(rect.right - rect.left)), Variant(int64(rect.bottom - rect.top)), Variant(text),
                              Variant(face.c_str()), Variant(font.size), Variant(int64(font.style)),
                              Variant(hexColor(rgba).c_str()), Variant(int64(alignment))})
            operation->append(value);
        operations->append(arrayVariant(operation));
        if (cell_ && *text)
            *cell_ += (cell_->empty() ? "" : " ") + std::string(text);
        return kResultOk;
    }
    tresult measureText(const char* text, const FontRecord& font, double& width) override
    {
        IGraphicsHelper* helper = GetGraphicsHelper();
        if (!text || !helper)
            return helper ? helper->measureText(text, font, width) : kUnexpected;
        std::string key(font.face, strnlen(font.face, sizeof font.face));
        key.append(reinterpret_cast<const char*>(&font.size), sizeof font.size);
        key.append(reinterpret_cast<const char*>(&font.style), sizeof font.style);
        key += text;
        if (const auto known = widths_.find(key); known != widths_.end())
        {
            width = known->second;
            return kResultOk;
        }
        const tresult result = helper->measureText(text, font, width);
        if (result == kResultOk)
        {
            if (widths_.size() >= kMaxWidths)
                widths_.clear();
            widths_.emplace(std::move(key), width);
        }
        return result;
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IGraphicsPort)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    static constexpr size_t kMaxWidths = 50000;
    Widths& widths_;
    std::vector<std::vector<std::string>> cells_;
    std::string* cell_ = nullptr;
};

int32 metricOf(IViewStyle* style, const char* name, int32 fallback)
{
    double value = fallback;
    if (!style || style->getMetric(name, value) != kResultOk || !(value >= 0 && value < 10000))
        return fallback;
    return static_cast<int32>(std::lround(value));
}

} // namespace

namespace {

/// A model as the page's list view draws it: its columns at the widths the user dragged them to,
/// everything else the model's own. Each cell it paints is named to the recorder first.
class ResizedColumns : public Object, public IItemModel
{
public:
    ResizedColumns(IItemModel& model, const std::map<int32, int32>& widths, DrawingRecorder& recorder)
        : model_(model), widths_(widths), recorder_(recorder)
    {
    }

    tresult getColumn(int32 column, ColumnRecord& record) override
    {
        const tresult result = model_.getColumn(column, record);
        if (const auto width = widths_.find(column); result == kResultOk && width != widths_.end())
            record.width = width->second;
        return result;
    }
    int32 countColumns() override { return model_.countColumns(); }
    int32 countRows() override { return model_.countRows(); }
    tresult paintCell(int32 row, int32 column, const RectRecord& rect, IGraphicsPort* port, IViewStyle* style) override
    {
        recorder_.beginCell(row, column);
        const tresult result = model_.paintCell(row, column, rect, port, style);
        recorder_.endCell();
        return result;
    }
    tresult attachView(IItemView* view) override { return model_.attachView(view); }
    tresult detachView(IItemView* view) override { return model_.detachView(view); }
    tresult onSelectionChanged() override { return model_.onSelectionChanged(); }
    IUnknown* getRowObject(int32 row) override { return model_.getRowObject(row); }
    tresult getRowTitle(int32 row, const char*& title) override { return model_.getRowTitle(row, title); }
    tresult getRowIcon(int32 row, const char*& image) override { return model_.getRowIcon(row, image); }
    tresult getRowFlag(int32 row, int32& flag) override { return model_.getRowFlag(row, flag); }
    tresult getTooltip(int32 row, int32 column, const char*& text) override { return model_.getTooltip(row, column, text); }
    tresult getCellValue(int32 row, int32 column, ValueRecord& value) override
    {
        return model_.getCellValue(row, column, value);
    }
    tresult canRemoveRow(int32 row) override { return model_.canRemoveRow(row); }
    tresult removeRow(int32 row) override { return model_.removeRow(row); }
    tresult canAcceptDrop(int32 row, IDragSession* session) override { return model_.canAcceptDrop(row, session); }
    tresult acceptDrop(int32 row, IDragSession* session) override { return model_.acceptDrop(row, session); }
    tresult clickCell(int32 row, int32 column) override { return model_.clickCell(row, column); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IItemModel)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    IItemModel& model_;
    const std::map<int32, int32>& widths_;
    DrawingRecorder& recorder_;
};

} // namespace

/// The list view of one of the page's tables, as the model sees it: it holds the selection in
/// the order rows were selected and the widths the user gave columns, and passes redraw requests
/// on to the session.
class TableView : public Object, public IItemView
{
public:
    TableView(IItemModel* model, GadgetSession& session, Ref<IViewStyle> style, Ref<IViewStyle> headerStyle)
        : model_(model), session_(&session), style_(std::move(style)), headerStyle_(std::move(headerStyle))
    {
        model_->attachView(this);
    }

    void detach()
    {
        if (model_)
            model_->detachView(this);
        model_.reset();
        session_ = nullptr;
    }

    IItemModel* model() const { return model_; }

    void click(int32 row, bool shift, bool ctrl)
    {
        if (shift && anchor_ >= 0 && anchor_ < model_->countRows())
        {
            selection_.clear();
            for (int32 r = std::min(anchor_, row); r <= std::max(anchor_, row); ++r)
                selection_.push_back(r);
        }
        else if (ctrl)
        {
            const auto found = std::find(selection_.begin(), selection_.end(), row);
            if (found != selection_.end())
                selection_.erase(found);
            else
                selection_.push_back(row);
            anchor_ = row;
        }
        else
        {
            selection_ = {row};
            anchor_ = row;
        }
        model_->onSelectionChanged();
    }

    const std::vector<int32>& selection() const { return selection_; }
    void select(const std::vector<int32>& rows)
    {
        selection_.clear();
        for (int32 row : rows)
            if (row >= 0 && row < model_->countRows() &&
                std::find(selection_.begin(), selection_.end(), row) == selection_.end())
                selection_.push_back(row);
        anchor_ = selection_.empty() ? -1 : selection_.back();
        model_->onSelectionChanged();
    }

    /// Gives a column the user may size `width` pixels (within sensible bounds).
    bool resizeColumn(int32 column, int32 width)
    {
        ColumnRecord record{};
        if (model_->getColumn(column, record) != kResultOk || !(record.flags & ColumnRecord::kSizable))
            return false;
        columnWidths_[column] = std::clamp(width, kMinColumnWidth, kMaxColumnWidth);
        return true;
    }

    /// The rows the model has now, its drawing, selection and tooltips.
    Ref<Attributes> read() const
    {
        auto table = makeRef<Attributes>();
        const int32 header = metricOf(headerStyle_, "headerHeight", 20);
        const int32 rowHeight = std::max(metricOf(style_, "rowHeight", 20), 1);
        const int32 rows = model_->countRows();
        int32 width = 0;
        auto recorder = makeRef<DrawingRecorder>(widths_, rows, model_->countColumns());
        auto resized = makeRef<ResizedColumns>(*model_, columnWidths_, *recorder);
        auto columns = makeRef<AttributeArray>();
        auto sizable = makeRef<AttributeArray>();
        auto titles = makeRef<AttributeArray>();
        auto identifiers = makeRef<AttributeArray>();
        int32 trackColumn = -1, fileColumn = -1;
        for (int32 column = 0; column < resized->countColumns(); ++column)
        {
            ColumnRecord record{};
            resized->getColumn(column, record);
            const std::string_view identifier = record.identifier ? record.identifier : "";
            trackColumn = identifier == "remote_track" ? column : trackColumn;
            fileColumn = identifier == "local_track" ? column : fileColumn;
            columns->append(Variant(int64(std::max(record.width, 0))));
            sizable->append(Variant((record.flags & ColumnRecord::kSizable) != 0));
            titles->append(Variant(record.title ? record.title : ""));
            identifiers->append(Variant(record.identifier ? record.identifier : ""));
            width += std::max(record.width, 0);
        }
        if (IGraphicsHelper* helper = GetGraphicsHelper(); helper && style_)
            helper->drawListView(resized, style_, headerStyle_, recorder, {0, 0, width, header + rows * rowHeight});
        auto selection = makeRef<AttributeArray>();
        for (int32 row : selection_)
            if (row >= 0 && row < rows)
                selection->append(Variant(int64(row)));
        auto tooltips = makeRef<AttributeArray>();
        auto checks = makeRef<AttributeArray>();
        // A row's verdict, for its badge and the grid's first column: [row, document].
        const auto addCheck = [&checks](int32 row, Attributes* document) {
            auto check = makeRef<AttributeArray>();
            check->append(Variant(int64(row)));
            check->append(Variant(static_cast<Object*>(document)));
            checks->append(arrayVariant(check));
        };
        // What each cell stands for, beside the words it shows: the page decides by these (a row's
        // state changed) and says the words.
        auto values = makeRef<AttributeArray>();
        for (int32 row = 0; row < rows; ++row)
        {
            auto rowValues = makeRef<AttributeArray>();
            for (int32 column = 0; column < model_->countColumns(); ++column)
            {
                ValueRecord value;
                rowValues->append(model_->getCellValue(row, column, value) == kResultOk ? valueOf(value) : Variant());
            }
            values->append(arrayVariant(rowValues));
        }
        for (int32 row = 0; row < rows; ++row)
        {
            bool checked = false;
            for (int32 column = 0; column < model_->countColumns(); ++column)
                if (const char* text = nullptr; model_->getTooltip(row, column, text) == kResultOk && text && *text)
                {
                    auto tip = makeRef<AttributeArray>();
                    tip->append(Variant(int64(row)));
                    tip->append(Variant(int64(column)));
                    tip->append(Variant(text));
                    tooltips->append(arrayVariant(tip));
                    // A file cell's tooltip is the file's whole path.
                    if (Attributes* report = session_ ? session_->fileReport(text) : nullptr; report && !checked)
                    {
                        addCheck(row, report);
                        checked = true;
                    }
                }
            // A track of the product without a file: what the host noted of it (a file it left
            // out as unchanged since its upload).
            ValueRecord track, file;
            if (!checked && session_ && trackColumn >= 0 &&
                model_->getCellValue(row, trackColumn, track) == kResultOk && track.type == ValueRecord::kString &&
                (fileColumn < 0 || model_->getCellValue(row, fileColumn, file) != kResultOk ||
                 file.type != ValueRecord::kString || file.textLength == 0))
                if (Attributes* note = session_->trackNote(std::string(track.text ? track.text : "", track.textLength)))
                    addCheck(row, note);
        }
        uint32 select = 0xCFE6F3FF;
        if (style_)
            style_->getColor("selectcolor", select);
        table->set("rows", Variant(int64(rows)));
        table->set("header", Variant(int64(header)));
        table->set("rowHeight", Variant(int64(rowHeight)));
        table->set("columns", arrayVariant(columns));
        table->set("sizable", arrayVariant(sizable));
        table->set("titles", arrayVariant(titles));
        table->set("identifiers", arrayVariant(identifiers));
        table->set("cells", arrayVariant(recorder->cellTexts()));
        table->set("values", arrayVariant(values));
        table->set("selection", arrayVariant(selection));
        table->set("selectColor", Variant(hexColor(select).c_str()));
        table->set("tooltips", arrayVariant(tooltips));
        table->set("checks", arrayVariant(checks));
        table->set("drawing", arrayVariant(recorder->operations));
        table->set("drops", Variant(model_->canAcceptDrop(-1, nullptr) == kResultOk));
        return table;
    }

    int32 countSelectedRows() override { return static_cast<int32>(selection_.size()); }
    int32 getSelectedRow(int32 index) override
    {
        return index >= 0 && index < countSelectedRows() ? selection_[static_cast<size_t>(index)] : -1;
    }
    tresult selectRow(int32 row) override
    {
        if (!model_ || row < 0 || row >= model_->countRows())
            return kInvalidArgument;
        selection_ = {row};
        anchor_ = row;
        model_->onSelectionChanged();
        return kResultOk;
    }
    tresult invalidate() override
    {
        if (session_)
            session_->tableInvalidated();
        return kResultOk;
    }
    tresult editCell(int32, int32) override { return kInvalidArgument; } // the page edits in the inspector
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IItemView)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    Ref<IItemModel> model_;
    GadgetSession* session_;
    Ref<IViewStyle> style_;
    Ref<IViewStyle> headerStyle_;
    std::vector<int32> selection_;
    int32 anchor_ = -1;
    mutable DrawingRecorder::Widths widths_;
    static constexpr int32 kMinColumnWidth = 16;
    static constexpr int32 kMaxColumnWidth = 4000;
    std::map<int32, int32> columnWidths_; ///< the columns the user sized
};

GadgetSession::GadgetSession(IComponent* root, const GadgetPage& page, std::string themeName)
    : root_(root), bindings_(page.bindings), themeName_(std::move(themeName))
{
    std::vector<std::string> controllers{""};
    for (const auto& [key, binding] : bindings_)
    {
        controllers.push_back(binding.controller);
        if (binding.kind == PageBinding::kParameter)
            observe(parameterOf(key));
        else if (binding.kind == PageBinding::kList)
        {
            IComponent* owner = componentAt(binding.controller);
            IItemModel* model = owner ? interfaceOf<IItemModel>(owner->lookupObject(binding.name.c_str())) : nullptr;
            if (!model)
                continue;
            // The styles the page's list view names.
            auto styleOf = [&](const char* name) {
                IViewStyle* made = nullptr;
                IGraphicsHelper* helper = GetGraphicsHelper();
                if (helper && name && *name && helper->createViewStyle(themeName_.c_str(), name, &made) == kResultOk)
                    return Ref<IViewStyle>::adopt(made);
                return Ref<IViewStyle>();
            };
            tables_[key] = makeRef<TableView>(model, *this, styleOf(binding.style.c_str()),
                                              styleOf(binding.headerStyle.c_str()));
            observe(model);
        }
    }
    std::sort(controllers.begin(), controllers.end());
    controllers.erase(std::unique(controllers.begin(), controllers.end()), controllers.end());
    for (const std::string& controller : controllers)
        observe(componentAt(controller));
}

GadgetSession::~GadgetSession() { close(); }

Attributes* GadgetSession::fileReport(const std::string& path) const
{
    const auto found = fileReports_.find(path);
    return found == fileReports_.end() ? nullptr : found->second.get();
}

Attributes* GadgetSession::trackNote(const std::string& name) const
{
    const auto found = trackNotes_.find(name);
    return found == trackNotes_.end() ? nullptr : found->second.get();
}

void GadgetSession::setTrackNotes(std::map<std::string, Ref<Attributes>> notes)
{
    if (notes.size() == trackNotes_.size() &&
        std::equal(notes.begin(), notes.end(), trackNotes_.begin(), [](const auto& one, const auto& other) {
            return one.first == other.first && Json::toText(*one.second) == Json::toText(*other.second);
        }))
        return;
    trackNotes_ = std::move(notes);
    tableInvalidated();
}

void GadgetSession::close()
{
    for (Ref<IUnknown>& object : observed_)
        if (ISubject* subject = interfaceOf<ISubject>(object))
            subject->removeObserver(this);
    observed_.clear();
    for (auto& [key, table] : tables_)
        table->detach();
    tables_.clear();
    root_.reset();
}

void GadgetSession::observe(IUnknown* object)
{
    ISubject* subject = interfaceOf<ISubject>(object);
    if (!subject)
        return;
    subject->addObserver(this);
    observed_.emplace_back(object);
}

IComponent* GadgetSession::componentAt(const std::string& controller) const
{
    IComponent* component = root_;
    size_t start = 0;
    while (component && start < controller.size())
    {
        const size_t slash = controller.find('/', start);
        const std::string name = controller.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        component = component->lookupChild(name.c_str());
        start = slash == std::string::npos ? controller.size() : slash + 1;
    }
    return component;
}

IParameter* GadgetSession::parameterOf(const std::string& key, IComponent** owner) const
{
    const auto binding = bindings_.find(key);
    if (binding == bindings_.end() || binding->second.kind != PageBinding::kParameter)
        return nullptr;
    IComponent* component = componentAt(binding->second.controller);
    if (owner)
        *owner = component;
    return component ? component->lookupParameter(binding->second.name.c_str()) : nullptr;
}

TableView* GadgetSession::tableOf(const std::string& key) const
{
    const auto table = tables_.find(key);
    return table == tables_.end() ? nullptr : table->second.get();
}

Ref<IMenu> GadgetSession::menuOf(const PageBinding& binding, IParameter& parameter) const
{
    auto menu = makeRef<Menu>();
    for (int32 i = 0; i < parameter.countEntries(); ++i)
    {
        ValueRecord entry;
        parameter.readEntry(i, entry);
        menu->addEntry(String(valueOf(entry).toString().toUtf8().c_str()), "", "", "", nullptr);
    }
    // The controller may add entries of its own to the menu of a select box.
    if (IObserver* controller = interfaceOf<IObserver>(componentAt(binding.controller)))
        controller->notify(nullptr, *Message::make("extendMenu", {Variant(static_cast<Object*>(menu.get())),
                                                                   Variant(binding.name.c_str())}));
    return Ref<IMenu>(static_cast<IMenu*>(menu.get()));
}

std::string GadgetSession::state()
{
    Attributes document;
    auto values = makeRef<Attributes>();
    auto properties = makeRef<Attributes>();
    auto lists = makeRef<Attributes>();
    for (const auto& [key, binding] : bindings_)
    {
        if (binding.kind == PageBinding::kProperty)
        {
            ValueRecord value;
            IComponent* owner = componentAt(binding.controller);
            if (owner && owner->readProperty(binding.name.c_str(), value) == kResultOk)
                properties->set(key, valueOf(value));
            continue;
        }
        if (binding.kind == PageBinding::kList)
        {
            if (TableView* table = tableOf(key))
                lists->set(key, objectVariant(table->read()));
            continue;
        }
        IParameter* parameter = parameterOf(key);
        ParameterInfo info{};
        if (!parameter || parameter->getInfo(info) != kResultOk)
            continue;
        auto entry = makeRef<Attributes>();
        entry->set("on", Variant(info.enabled != 0));
        ValueRecord value;
        if (!binding.secret && info.kind != ParameterInfo::kCommand && parameter->readValue(value) == kResultOk)
            entry->set("v", valueOf(value));
        if (info.kind == ParameterInfo::kList)
        {
            auto entries = makeRef<AttributeArray>();
            for (int32 i = 0; i < parameter->countEntries(); ++i)
            {
                ValueRecord item;
                parameter->readEntry(i, item);
                entries->append(valueOf(item));
            }
            entry->set("e", arrayVariant(entries));
            if (binding.element == "SelectBox")
            {
                Ref<IMenu> menu = menuOf(binding, *parameter);
                auto added = makeRef<AttributeArray>();
                for (int32 i = parameter->countEntries(); i < menu->countEntries(); ++i)
                {
                    MenuEntryRecord record{};
                    if (menu->getEntry(i, record) != kResultOk)
                        continue;
                    auto item = makeRef<Attributes>();
                    item->set("title", Variant(record.title ? record.title : ""));
                    item->set("on", Variant(record.enabled != 0));
                    added->append(objectVariant(item));
                }
                entry->set("m", arrayVariant(added));
            }
        }
        values->set(key, objectVariant(entry));
    }
    document.set("values", objectVariant(values));
    document.set("props", objectVariant(properties));
    document.set("lists", objectVariant(lists));
    return Json::toText(document);
}

std::string GadgetSession::setValue(const std::string& key, const std::string& value, bool notify)
{
    IParameter* parameter = parameterOf(key);
    ParameterInfo info{};
    if (!parameter || parameter->getInfo(info) != kResultOk)
        return "no such field";
    if (!info.enabled)
        return "the field cannot be changed now";
    ValueRecord record;
    if (info.kind == ParameterInfo::kString)
    {
        record.type = ValueRecord::kString;
        record.text = value.data();
        record.textLength = value.size();
    }
    else
    {
        char* end = nullptr;
        const long long number = std::strtoll(value.c_str(), &end, 10);
        if (value.empty() || *end)
            return "the field takes a number";
        record.type = ValueRecord::kInt;
        record.intValue = number;
    }
    return parameter->writeValue(record, notify) == kResultOk ? "" : "the field did not take the value";
}

std::string GadgetSession::press(const std::string& key)
{
    IParameter* parameter = parameterOf(key);
    ParameterInfo info{};
    if (!parameter || parameter->getInfo(info) != kResultOk)
        return "no such button";
    if (!info.enabled)
        return "the button cannot be used now";
    if (beforePress)
        beforePress(key);
    ValueRecord record;
    record.type = ValueRecord::kInt;
    record.intValue = 1;
    return parameter->writeValue(record, true) == kResultOk ? "" : "the button did not react";
}

std::string GadgetSession::chooseMenuEntry(const std::string& key, int index)
{
    IParameter* parameter = parameterOf(key);
    const auto binding = bindings_.find(key);
    if (!parameter || binding == bindings_.end())
        return "no such list";
    if (index >= 0 && index < parameter->countEntries())
        return setValue(key, std::to_string(index), true);
    Ref<IMenu> menu = menuOf(binding->second, *parameter);
    if (index < 0 || index >= menu->countEntries())
        return "no such entry";
    return menu->chooseEntry(index) == kResultOk ? "" : "the entry cannot be chosen now";
}

std::string GadgetSession::clickCell(const std::string& key, int row, int column, bool shift, bool ctrl)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    IItemModel* model = table->model();
    if (row < 0 || row >= model->countRows() || column < 0 || column >= model->countColumns())
        return "no such cell";
    if (!shift && !ctrl && model->clickCell(row, column) == kResultOk)
        return "";
    table->click(row, shift, ctrl);
    return "";
}

std::string GadgetSession::selectRow(const std::string& key, int row, bool shift, bool ctrl)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    if (row < 0 || row >= table->model()->countRows())
        return "no such row";
    table->click(row, shift, ctrl);
    return "";
}

std::string GadgetSession::listKey(const std::string& name) const
{
    for (const auto& [key, binding] : bindings_)
        if (binding.kind == PageBinding::kList && binding.name == name && tables_.count(key))
            return key;
    return {};
}

std::vector<int> GadgetSession::selectedRows(const std::string& key) const
{
    TableView* table = tableOf(key);
    return table ? std::vector<int>(table->selection().begin(), table->selection().end()) : std::vector<int>();
}

void GadgetSession::selectRows(const std::string& key, const std::vector<int>& rows)
{
    if (TableView* table = tableOf(key))
        table->select(std::vector<int32>(rows.begin(), rows.end()));
}

std::string GadgetSession::resizeColumn(const std::string& key, int column, int width)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    if (!table->resizeColumn(column, width))
        return "the column cannot be sized";
    tableInvalidated();
    return "";
}

std::string GadgetSession::removeRows(const std::string& key, std::vector<int> rows)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    IItemModel* model = table->model();
    if (rows.empty())
        for (int32 i = 0; i < table->countSelectedRows(); ++i)
            rows.push_back(table->getSelectedRow(i));
    // From the last row up, so that the rows still to go keep their numbers.
    std::sort(rows.rbegin(), rows.rend());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    bool removed = false;
    for (int32 row : rows)
        if (row >= 0 && row < model->countRows() && model->canRemoveRow(row) == kResultOk)
            removed = model->removeRow(row) == kResultOk || removed;
    return removed ? "" : "the rows cannot be removed now";
}

std::string GadgetSession::moveRows(const std::string& key, const std::vector<int>& rows, int row)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    IItemModel* model = table->model();
    auto session = makeRef<DragSession>(static_cast<IItemView*>(table));
    for (int dragged : rows)
        if (IUnknown* object = model->getRowObject(dragged))
            session->addItem(object);
    if (session->countItems() == 0)
        return "no such row";
    if (model->canAcceptDrop(row, session) != kResultOk)
        return "the rows cannot be moved now";
    return model->acceptDrop(row, session) == kResultOk ? "" : "the rows were not moved";
}

std::string GadgetSession::dropFiles(const std::string& key, const std::vector<std::string>& paths, int row)
{
    TableView* table = tableOf(key);
    if (!table)
        return "no such list";
    IItemModel* model = table->model();
    auto session = makeRef<DragSession>();
    for (const std::string& path : paths)
        session->addItem(static_cast<IUrl*>(makeRef<UrlObject>(Url::fromNativePath(String(path.c_str()))).get()));
    if (model->canAcceptDrop(row, session) != kResultOk)
        return "the track list takes audio files only, and none while uploading";
    return model->acceptDrop(row, session) == kResultOk ? "" : "the track list did not take the files";
}

void GadgetSession::queueEvent(const std::string& name, const std::string& data) { events_.emplace_back(name, data); }

std::vector<std::pair<std::string, std::string>> GadgetSession::takeEvents()
{
    std::vector<std::pair<std::string, std::string>> events;
    events.swap(events_);
    if (!pendingSignal_.empty() && root_)
    {
        std::string now = state();
        if (now != lastState_)
        {
            lastState_ = now;
            events.emplace_back(pendingSignal_, std::move(now));
        }
        pendingSignal_.clear();
    }
    return events;
}

void GadgetSession::notify(ISubject*, IMessage& message)
{
    const std::string_view id = idOf(message);
    // A property change outranks a content change, which outranks a redraw.
    if (id == "propertyChanged")
        pendingSignal_ = "propertyChanged";
    else if (pendingSignal_ != "propertyChanged")
        pendingSignal_ = "changed";
}

void GadgetSession::tableInvalidated()
{
    if (pendingSignal_.empty())
        pendingSignal_ = "progress";
}

tresult GadgetSession::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    return Object::queryInterface(iid, object);
}

} // namespace Host
