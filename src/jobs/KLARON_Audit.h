// A record of what an audited object did: when, what went wrong, which products it made, and the records of what ran
// inside it. Nothing opens records today: jobs and packages close theirs as they end, and that costs them a look at an
// empty table.
//
// The table of records (store) and the stack of those under way are the process's. A record in the table keeps its
// object alive. All of it is safe on any thread; a record is not written by two at a time in a sensible order.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "template/KLARON_Audited.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class KLARON_Audit final : public base::Object, public std::enable_shared_from_this<KLARON_Audit> {
public:
    using Ref = std::shared_ptr<KLARON_Audit>;

    // The process's records ----------------------------------------------------------------------------------------

    /// As they are at this moment.
    static std::vector<Ref> stack();
    static std::map<base::ObjectRef, Ref> store();

    /// Gives the object an empty record: no times, name or parent (initForObject makes one that has them).
    static void start(const base::ObjectRef& object);
    /// Notes the time and takes the record out of the store. Does nothing for an object without one.
    static void end(const base::Object* object);
    /// Both do nothing for an object without a record.
    static void auditedSetProduct(const base::Object* object, base::Value product, std::string_view key);
    static void auditedAddError(const base::Object* object, const base::Error& error);
    /// The record of the object, or null.
    static Ref audit(const base::Object* object);

    static void push(Ref record);
    /// Removes the last record, whichever is given; nothing when there is none.
    static void pop(const Ref& record);
    /// The last one pushed, or null.
    static Ref current();
    static void clearStack();

    // A record -----------------------------------------------------------------------------------------------------

    KLARON_Audit() = default;
    /// Begins now, as a child of the current record, or as a root with an identifier of its own. An object may be null.
    static Ref initForObject(const base::Object* object);

    void addChild(Ref child);
    void addError(const base::Error& error);
    /// Puts it among the errors; products are stored by setObject.
    void addProduct(base::Value product);
    base::Value objectForKeyedSubscript(std::string_view key) const;
    /// Nothing takes the product away.
    void setObject(base::Value product, std::string_view key);

    /// The record around this one, while it lives.
    Ref parent() const { return get(parent_).lock(); }
    void setParent(const Ref& parent) { set(parent_, std::weak_ptr(parent)); }
    /// The same for all records of a tree; empty when it was made by start.
    std::string uuid() const { return get(uuid_); }
    std::optional<std::string> displayName() const { return get(displayName_); }
    void setDisplayName(std::string name) { set(displayName_, std::optional(std::move(name))); }
    std::optional<base::Date> start() const { return get(start_); }
    void setStart(std::optional<base::Date> date) { set(start_, date); }
    std::optional<base::Date> end() const { return get(end_); }
    void setEnd(std::optional<base::Date> date) { set(end_, date); }
    std::vector<Ref> children() const { return get(children_); }
    /// Errors as dictionaries of "NSDomain", "NSCode" and "NSLocalizedDescription".
    base::Array errors() const { return get(errors_); }
    base::Dictionary products() const { return get(products_); }
    base::Array providerKeys() const { return get(providerKeys_); }

    /// Through the archived form, under the same parent. It has no times: they are archived but not read back.
    base::Result<Ref> copyWithZone();

    std::string className() const override { return "KLARON_Audit"; }
    /// A child's parent is not among it: whoever brings back children is their parent.
    std::optional<base::Dictionary> encoded() override;
    static base::Result<base::ObjectRef> initWithCoder(const base::Dictionary& values);

private:
    template <class T>
    T get(const T& field) const {
        std::lock_guard lock(mutex_);
        return field;
    }
    template <class T>
    void set(T& field, T value) {
        std::lock_guard lock(mutex_);
        field = std::move(value);
    }

    mutable std::mutex mutex_;
    std::weak_ptr<KLARON_Audit> parent_;
    std::string uuid_;
    std::optional<std::string> displayName_;
    std::optional<base::Date> start_;
    std::optional<base::Date> end_;
    std::vector<Ref> children_;
    base::Array errors_;
    base::Dictionary products_;
    base::Array providerKeys_;
};
