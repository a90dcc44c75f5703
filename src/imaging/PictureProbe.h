// Tries whether picture files can be decoded: headers may promise what the data does not hold. Each file is decoded
// once, small, however often it is asked for. One thread.
#pragma once

#include <map>
#include <string>

class PictureProbe {
public:
    /// The reason in plain words; empty for a file that can be decoded.
    const std::string& whyUndecodable(const std::string& file);

private:
    std::map<std::string, std::string> reasons_;
};
