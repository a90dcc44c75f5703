// What VELM_FolderSet and each class derived from it hold once for the whole class: the list of sets, who is told of
// its changes, and how it is saved and loaded. One object for each class, made on first use and living as long as the
// process:
//
//     class JobFoldersClass final : public FolderSetClass { ... keyForSavedFolderSets() ... loadFolderSets() ... };
//     JobFoldersClass::JobFoldersClass()
//         : FolderSetClass("VELM_JobFolders", [](const base::Dictionary& archived) {
//               return std::make_shared<VELM_JobFolders>(archived);
//           }) {}
//     FolderSetClass& VELM_JobFolders::classObject() { static auto& object = *new JobFoldersClass; return object; }
//     FolderSetClass& VELM_JobFolders::folderSetClass() const { return classObject(); }
//
// The list is loaded by the first operation that needs it. It is changed on the main queue and may be read on any
// thread. Constructing the object loads nothing.
#pragma once

#include "base/Error.h"
#include "base/Value.h"
#include "folders/KeyPathObservation.h"
#include "platform/run/Observation.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class VELM_FolderSet;

class FolderSetClass {
public:
    using FolderSetRef = std::shared_ptr<VELM_FolderSet>;
    using FolderSets = std::vector<FolderSetRef>;
    using ObserverBlock = std::function<void(const FolderSets& folderSets)>;

    /// The class key under which changes of the list are notified.
    static constexpr std::string_view key_folderSets = "folderSets";

    /// Makes a set of the class out of an archive's values, those of VELM_FolderSet::encoded().
    using Maker = std::function<FolderSetRef(const base::Dictionary& archived)>;

    /// `className`: "VELM_JobFolders". From then on archives may hold sets of the class; sets are copied with it too.
    FolderSetClass(std::string className, Maker maker);
    virtual ~FolderSetClass();
    FolderSetClass(const FolderSetClass&) = delete;
    FolderSetClass& operator=(const FolderSetClass&) = delete;

    const std::string& className() const { return className_; }
    FolderSetRef folderSetFromArchive(const base::Dictionary& archived) const { return maker_(archived); }

    // What a class decides -----------------------------------------------------------------------------------------

    virtual std::string keyForSavedFolderSets() const;
    /// Whether the sets are exactly the eight "Path 1" to "Path 8".
    virtual bool usesOldVELMNames() const { return false; }

    // The list -----------------------------------------------------------------------------------------------------

    /// A copy of the list.
    FolderSets folderSets();
    /// Replaces the contents, without notification and without saving.
    void setFolderSets(FolderSets folderSets);
    /// Gives the set a valid name, appends it with notification, saves.
    void addFolderSet(const FolderSetRef& folderSet);
    /// Removes an equal set with notification, saves.
    void removeFolderSet(const FolderSetRef& folderSet);
    /// The first set of that name, ignoring case; null when there is none.
    virtual FolderSetRef folderSetWithName(std::string_view name);
    /// The name, numbered on until no set of the list has it: "Foo", "Foo 1", "Foo 2".
    std::optional<std::string> validateName(std::optional<std::string> name);

    /// The key "folderSets", and those that a derived class adds.
    platform::run::Observable& observable() { return observable_; }

    // Saving and loading -------------------------------------------------------------------------------------------

    /// Saves the list half a second after the last request, on the main queue. The requests of all classes share one
    /// timer: of requests in one burst only that of the last class is carried out.
    void saveFolderSets();
    /// Saves the list at once, on the calling thread.
    base::Result<void> saveNow();
    /// Tells the observers a tenth of a second after the last request, on the main queue. Shares its timer likewise.
    void updateFolderSets();
    /// Loads the list anew from the defaults, without notification.
    void updateFromSavedData();
    /// What the defaults hold; empty when that is nothing.
    base::Result<FolderSets> readSavedData() const;
    /// The same; empty, too, when it can't be read, which is logged.
    FolderSets folderSetsFromSavedData() const;

    /// Calls the block with the list after each updateFolderSets, for as long as the observer lives. A second block of
    /// the same observer replaces its first.
    void addObserver(const std::shared_ptr<const void>& observer, ObserverBlock block);
    void removeObserver(const std::shared_ptr<const void>& observer);

protected:
    /// Makes the list when it is needed for the first time. Runs once; must not use the list.
    virtual FolderSets loadFolderSets();
    /// Called once when the list stands and the saved data is observed; may use the list.
    virtual void didLoadFolderSets() {}
    /// Makes one of the sets of fixed name that are missing.
    virtual FolderSetRef makeFolderSet(const std::string& name);

    /// The sets with the eight fixed names: those of them among `loaded`, in their order, then new ones.
    FolderSets withOldVELMNames(const FolderSets& loaded);

private:
    struct Observer {
        std::weak_ptr<const void> observer;
        const void* identity;
        ObserverBlock block;
    };

    /// The list proper, loaded when it isn't yet.
    void folderSetsPrivate();

    const std::string className_;
    const Maker maker_;
    std::once_flag loaded_;
    mutable std::mutex mutex_; // guards the list and the observers
    FolderSets folderSets_;
    std::vector<Observer> mapObservers_;
    KeyPathObservation observationFilesets_;
    platform::run::Observable observable_;
};
