// The pages of one order, held together. A value without a thread of its own.
#pragma once

#include "base/Error.h"
#include "print/KLARON_PrintPage.h"

#include <functional>
#include <utility>
#include <vector>

class KLARON_PrintJob {
public:
    const std::vector<KLARON_PrintPageRef>& pages() const { return pages_; }
    void setPages(std::vector<KLARON_PrintPageRef> pages) { pages_ = std::move(pages); }

    /// There is no other form of a job yet: null.
    static std::shared_ptr<KLARON_PrintJob> convertToJob(const base::Value& source);
    /// Nor is one written: the callback is never called.
    void writeToURL(const base::URL& url, const std::function<void(const base::Result<void>&)>& result) const;

private:
    std::vector<KLARON_PrintPageRef> pages_;
};
