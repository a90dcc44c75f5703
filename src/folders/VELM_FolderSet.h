// A folder with a name and free-form settings, saved in the user defaults along with the others of its class. Base of
// the watched job folders and of the print-to-file sets. What the class holds as a whole (the list, its observers, how
// it is saved) is in FolderSetClass.
//
// Shared objects; a set lives in the list of its class for the life of the process. Setters save the list of the
// receiver's class. Fields may be read on any thread.
#pragma once

#include "base/Path.h"
#include "base/Value.h"
#include "folders/FolderSetClass.h"
#include "platform/run/Observation.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

class VELM_FolderSet : public base::Object {
public:
    using Ref = std::shared_ptr<VELM_FolderSet>;

    /// A set that is in no list yet; nothing is saved.
    static Ref initWithName(std::string name, base::URL url);
    /// The home folder.
    static Ref initWithName(std::string name);

    VELM_FolderSet(std::string name, base::URL url);
    explicit VELM_FolderSet(std::string name);
    /// Out of the archive's values, those of encoded().
    explicit VELM_FolderSet(const base::Dictionary& archived);

    static FolderSetClass& classObject();
    /// The class object of the receiver's own class. A derived class overrides it with its own.
    virtual FolderSetClass& folderSetClass() const { return classObject(); }

    // Fields ---------------------------------------------------------------------------------------------------------

    std::string name() const;
    /// Takes the name that the class's validateName makes of it: as the set's present name is in the list too, asking
    /// for that one gives it the next number.
    void setName(const std::string& name);

    /// The folder. With a bookmark its volume is looked for first; a failure of that is logged and changes nothing.
    base::URL URL() const;
    /// Also renews or drops the bookmark.
    virtual void setURL(const base::URL& url);

    /// A copy of all settings.
    base::Dictionary properties() const;
    base::Value property(std::string_view key) const;
    /// Stores without saving.
    void setProperty(std::string_view key, base::Value value);

    /// Only for a folder on another volume than the root.
    std::optional<base::Data> bookmark() const;
    /// What finds the folder again; nothing, logged, when the folder isn't there.
    std::optional<base::Data> bookmarkData() const;
    void resolveBookmark() const;

    /// Identity at run time: made when first asked for, kept by no copy and no archive.
    std::string uuid() const;

    /// The settings, folder and name of this one, in a new set of its class.
    Ref copy() const;

    /// Notifies on the key "name", and on those that a derived class adds.
    platform::run::Observable& observable() const { return observable_; }

    // Object
    // -----------------------------------------------------------------------------------------------------------

    std::string className() const override { return folderSetClass().className(); }
    /// Of the receiver's class or one derived from it, with the same name ignoring case.
    bool isEqual(const base::Object& other) const override;
    std::size_t hash() const override;
    std::string description() const override;
    std::optional<base::Dictionary> encoded() override;

private:
    mutable std::mutex mutex_; // guards the fields
    base::URL url_;
    base::Dictionary properties_;
    std::string name_;
    std::optional<base::Data> bookmark_;
    mutable std::string uuid_;
    mutable platform::run::Observable observable_;
};
