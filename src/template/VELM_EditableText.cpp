#include "template/VELM_EditableText.h"

#include "base/MessageTemplate.h"
#include "platform/data/Collation.h"
#include "platform/data/UserDefaults.h"

#include <algorithm>
#include <mutex>

using platform::data::UserDefaults;

namespace {

constexpr std::size_t textCount = 20;

struct Storage {
    std::mutex mutex;
    base::Dictionary texts;
};

Storage& privateStorage() {
    static Storage storage{
        {},
        VELM_EditableText::storageFromDefaults(UserDefaults::standard().objectForKey(VELM_EditableText::defaultsKey))};
    return storage;
}

} // namespace

base::Dictionary VELM_EditableText::storageFromDefaults(const base::Value& stored) {
    base::Dictionary texts;
    if (const auto* dictionary = stored.as<base::Dictionary>()) texts = *dictionary;
    if (texts.size() == textCount && texts.begin()->first.starts_with("text ")) texts.clear();
    if (texts.size() < textCount) {
        for (std::size_t number = 1; number <= textCount; ++number)
            texts.try_emplace(base::message("%d", number), base::message("Editable Text #%d", number));
    }
    return texts;
}

std::optional<std::string> VELM_EditableText::editableTextForKey(std::string_view key) {
    Storage& storage = privateStorage();
    const std::lock_guard lock(storage.mutex);
    return base::textForKey(storage.texts, key);
}

void VELM_EditableText::setEditableText(const std::optional<std::string>& text, std::string_view key) {
    Storage& storage = privateStorage();
    base::Dictionary all;
    {
        const std::lock_guard lock(storage.mutex);
        if (text)
            storage.texts.insert_or_assign(std::string(key), *text);
        else if (const auto found = storage.texts.find(key); found != storage.texts.end())
            storage.texts.erase(found);
        all = storage.texts;
    }
    // Outside the lock: who observes the defaults may ask for texts.
    (void)UserDefaults::standard().setObject(all, defaultsKey); // a failure is in the log
}

std::vector<VELM_EditableText::Ref> VELM_EditableText::editableTextObjects() {
    std::vector<Ref> objects;
    {
        Storage& storage = privateStorage();
        const std::lock_guard lock(storage.mutex);
        for (const auto& entry : storage.texts)
            objects.push_back(std::make_shared<VELM_EditableText>(entry.first));
    }
    std::stable_sort(objects.begin(), objects.end(), [](const Ref& left, const Ref& right) {
        return platform::data::compareIgnoringCaseNumeric(left->key(), right->key()) < 0;
    });
    return objects;
}
