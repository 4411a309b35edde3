#include "framework/text/TextTable.h"

#include "framework/data/Attributes.h"

#include <algorithm>
#include <memory>

namespace KVX {

TextTable& TextTable::forScope(std::string_view scope)
{
    static std::mutex tablesMutex;
    static std::vector<std::unique_ptr<TextTable>> tables;
    std::lock_guard lock(tablesMutex);
    for (auto& table : tables)
        if (table->scope_ == scope)
            return *table;
    tables.push_back(std::unique_ptr<TextTable>(new TextTable(scope)));
    return *tables.back();
}

void TextTable::registerText(const String& english)
{
    std::lock_guard lock(mutex_);
    if (std::find(registered_.begin(), registered_.end(), english) == registered_.end())
        registered_.push_back(english);
}

std::vector<String> TextTable::registeredTexts() const
{
    std::lock_guard lock(mutex_);
    return registered_;
}

String TextTable::translate(const String& english) const
{
    std::lock_guard lock(mutex_);
    auto it = translations_.find(english);
    return it == translations_.end() ? english : it->second;
}

int TextTable::loadTranslations(const Attributes& translations)
{
    std::lock_guard lock(mutex_);
    int taken = 0;
    for (const Attributes::Member& member : translations)
        if (member.value.isString() && !member.value.asString().isEmpty())
        {
            translations_[String::fromUtf8(member.name.view())] = member.value.asString();
            ++taken;
        }
    return taken;
}

void TextTable::clearTranslations()
{
    std::lock_guard lock(mutex_);
    translations_.clear();
}

} // namespace KVX
