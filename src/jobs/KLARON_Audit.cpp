#include "jobs/KLARON_Audit.h"

#include "platform/data/Dates.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UUID.h"

#include <atomic>
#include <unordered_map>
#include <utility>

namespace {

/// Found by identity: equal objects have records of their own.
struct Entry {
    base::ObjectRef object;
    KLARON_Audit::Ref record;
};

struct Records {
    std::mutex mutex;
    std::vector<KLARON_Audit::Ref> auditStack;
    std::unordered_map<const base::Object*, Entry> auditStore;
    std::atomic<std::size_t> storeSize = 0; // so that an empty store is seen without the lock
};

/// Objects end at any time, also while the process does: this outlives them.
Records& records() {
    static auto& all = *new Records;
    return all;
}

/// Takes the record out. What the store kept alive may end only when the lock is free, for it asks the store then.
Entry taken(const base::Object* object) {
    Records& all = records();
    if (all.storeSize.load(std::memory_order_acquire) == 0) return {};
    std::lock_guard lock(all.mutex);
    auto node = all.auditStore.extract(object);
    all.storeSize = all.auditStore.size();
    return node ? std::move(node.mapped()) : Entry();
}

base::Value valueOfError(const base::Error& error) {
    return base::Dictionary{
        {"NSDomain", error.domain}, {"NSCode", error.code}, {"NSLocalizedDescription", error.localizedDescription}};
}

// The dates are not among the keys that are read: texts are expected there, and dates were written.
[[maybe_unused]] const bool classIsRegistered = [] {
    platform::data::registerArchivedClass({"KLARON_Audit",
                                           {"NSObject"},
                                           {{"self.uuid", {"NSString"}},
                                            {"self.displayName", {"NSString"}},
                                            {"self.providerKeys", {"NSArray"}},
                                            {"self.products", {"NSMutableDictionary"}},
                                            {"self.errors", {"NSMutableArray"}},
                                            {"self.children", {"NSMutableArray", "KLARON_Audit"}}},
                                           KLARON_Audit::initWithCoder});
    return true;
}();

} // namespace

// The process's records --------------------------------------------------------------------------------------------

std::vector<KLARON_Audit::Ref> KLARON_Audit::stack() {
    std::lock_guard lock(records().mutex);
    return records().auditStack;
}

std::map<base::ObjectRef, KLARON_Audit::Ref> KLARON_Audit::store() {
    std::map<base::ObjectRef, Ref> all;
    std::lock_guard lock(records().mutex);
    for (const auto& [identity, entry] : records().auditStore)
        all.emplace(entry.object, entry.record);
    return all;
}

void KLARON_Audit::start(const base::ObjectRef& object) {
    if (!object) return;
    Entry entry{object, std::make_shared<KLARON_Audit>()};
    Records& all = records();
    std::lock_guard lock(all.mutex);
    std::swap(all.auditStore[object.get()], entry); // the former record ends behind the lock
    all.storeSize = all.auditStore.size();
}

void KLARON_Audit::end(const base::Object* object) {
    const Entry entry = taken(object);
    if (entry.record) entry.record->setEnd(platform::data::now());
}

void KLARON_Audit::auditedSetProduct(const base::Object* object, base::Value product, std::string_view key) {
    if (const Ref record = audit(object)) record->setObject(std::move(product), key);
}

void KLARON_Audit::auditedAddError(const base::Object* object, const base::Error& error) {
    if (const Ref record = audit(object)) record->addError(error);
}

KLARON_Audit::Ref KLARON_Audit::audit(const base::Object* object) {
    Records& all = records();
    std::lock_guard lock(all.mutex);
    const auto entry = all.auditStore.find(object);
    return entry == all.auditStore.end() ? nullptr : entry->second.record;
}

void KLARON_Audit::push(Ref record) {
    if (!record) return;
    std::lock_guard lock(records().mutex);
    records().auditStack.push_back(std::move(record));
}

void KLARON_Audit::pop(const Ref&) {
    Ref removed;
    std::lock_guard lock(records().mutex);
    auto& stack = records().auditStack;
    if (stack.empty()) return;
    removed = std::move(stack.back());
    stack.pop_back();
}

KLARON_Audit::Ref KLARON_Audit::current() {
    std::lock_guard lock(records().mutex);
    const auto& stack = records().auditStack;
    return stack.empty() ? nullptr : stack.back();
}

void KLARON_Audit::clearStack() {
    std::vector<Ref> removed;
    std::lock_guard lock(records().mutex);
    removed.swap(records().auditStack);
}

// A record ---------------------------------------------------------------------------------------------------------

KLARON_Audit::Ref KLARON_Audit::initForObject(const base::Object* object) {
    const auto record = std::make_shared<KLARON_Audit>();
    const auto* audited = dynamic_cast<const KLARON_Audited*>(object);
    if (audited)
        for (std::string& key : audited->auditedProductKeys())
            record->providerKeys_.emplace_back(std::move(key));
    record->start_ = platform::data::now();
    if (audited) record->displayName_ = audited->auditedDisplayName();
    if (!record->displayName_) record->displayName_ = object ? object->className() : "unknown object type";
    const Ref around = current();
    if (around) record->uuid_ = around->uuid();
    if (record->uuid_.empty()) {
        record->uuid_ = platform::data::makeUUIDString();
    } else {
        record->parent_ = around;
        around->addChild(record);
    }
    return record;
}

void KLARON_Audit::addChild(Ref child) {
    std::lock_guard lock(mutex_);
    children_.push_back(std::move(child));
}

void KLARON_Audit::addError(const base::Error& error) {
    addProduct(valueOfError(error));
}

void KLARON_Audit::addProduct(base::Value product) {
    std::lock_guard lock(mutex_);
    errors_.push_back(std::move(product));
}

base::Value KLARON_Audit::objectForKeyedSubscript(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return base::valueForKey(products_, key);
}

void KLARON_Audit::setObject(base::Value product, std::string_view key) {
    std::lock_guard lock(mutex_);
    if (product.isNothing())
        products_.erase(std::string(key));
    else
        products_.insert_or_assign(std::string(key), std::move(product));
}

// Archives ---------------------------------------------------------------------------------------------------------

std::optional<base::Dictionary> KLARON_Audit::encoded() {
    std::lock_guard lock(mutex_);
    base::Dictionary values;
    const auto add = [&values](const char* key, base::Value value) {
        if (value) values.emplace(key, std::move(value));
    };
    if (!uuid_.empty()) add("self.uuid", uuid_);
    add("self.displayName", displayName_);
    add("self.start", start_);
    add("self.end", end_);
    if (!providerKeys_.empty()) add("self.providerKeys", providerKeys_);
    if (!products_.empty()) add("self.products", products_);
    if (!errors_.empty()) add("self.errors", errors_);
    if (!children_.empty()) add("self.children", base::Array(children_.begin(), children_.end()));
    return values;
}

base::Result<base::ObjectRef> KLARON_Audit::initWithCoder(const base::Dictionary& values) {
    const auto record = std::make_shared<KLARON_Audit>();
    record->uuid_ = base::textForKey(values, "self.uuid").value_or("");
    record->displayName_ = base::textForKey(values, "self.displayName");
    const auto list = [&values](const char* key) {
        const auto* members = base::valueForKey(values, key).as<base::Array>();
        return members ? *members : base::Array();
    };
    record->providerKeys_ = list("self.providerKeys");
    if (const auto* products = base::valueForKey(values, "self.products").as<base::Dictionary>())
        record->products_ = *products;
    record->errors_ = list("self.errors");
    for (const base::Value& member : list("self.children")) {
        const auto child = member.object<KLARON_Audit>();
        if (!child) continue;
        child->parent_ = record;
        record->children_.push_back(child);
    }
    return record;
}

base::Result<KLARON_Audit::Ref> KLARON_Audit::copyWithZone() {
    const base::ObjectRef self = shared_from_this();
    const auto archive = platform::data::archivedData(base::Value(self));
    if (!archive) return base::failure(archive.error());
    const auto copy = platform::data::unarchived(*archive, {"KLARON_Audit"});
    if (!copy) return base::failure(copy.error());
    const Ref record = copy->object<KLARON_Audit>();
    record->setParent(parent());
    return record;
}
