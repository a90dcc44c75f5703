// A token for the observation of any named property: of an Observable, of the user defaults, of whatever ends with the
// token it gives. The observation ends with the last copy.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

class KeyPathObservation {
public:
    KeyPathObservation() = default;
    template <class Token>
    requires(!std::is_lvalue_reference_v<Token> && !std::is_same_v<std::remove_cvref_t<Token>, KeyPathObservation>)
        KeyPathObservation(Token&& token)
        : token_(std::make_shared<Token>(std::move(token))) {}

    void end() { token_.reset(); }
    explicit operator bool() const { return token_ != nullptr; }

private:
    std::shared_ptr<void> token_;
};
