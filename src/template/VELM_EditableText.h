// The texts that the user keeps for stamps, by key; normally twenty, under the keys "1" to "20". One process-wide
// store, mirrored in the user defaults and read from there once. Any thread.
#pragma once

#include "base/Value.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class VELM_EditableText : public base::Object {
public:
    using Ref = std::shared_ptr<VELM_EditableText>;
    static constexpr std::string_view defaultsKey = "VELM_EditableText";

    explicit VELM_EditableText(std::string key) : key_(std::move(key)) {}

    static std::optional<std::string> editableTextForKey(std::string_view key);
    /// Stores the text and writes the whole store to the defaults. Nothing removes the text.
    static void setEditableText(const std::optional<std::string>& text, std::string_view key);
    /// One for each stored key; sorted ignoring case, numbers by value.
    static std::vector<Ref> editableTextObjects();
    /// The store that begins with what the defaults hold: an older form is dropped, missing texts are added.
    static base::Dictionary storageFromDefaults(const base::Value& stored);

    const std::string& key() const { return key_; }
    /// The stored text; empty when there is none.
    std::string value() const { return editableTextForKey(key_).value_or(""); }
    void setValue(const std::string& text) { setEditableText(text, key_); }

    std::string className() const override { return "VELM_EditableText"; }

private:
    std::string key_;
};
