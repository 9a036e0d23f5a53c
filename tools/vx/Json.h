// Json.h - The output of --json. nlohmann/json, which compiles slowly, is included in Json.cpp
// only.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string_view>
#include <utility>

namespace tool {

class Json;
void printJson(const Json& data);

/// A JSON value to print. Copies share it.
class Json {
public:
    Json(std::nullptr_t = nullptr);
    Json(bool value);
    Json(double value);
    Json(std::int64_t value);
    template <std::integral Number> Json(Number value) : Json(static_cast<std::int64_t>(value)) {}
    template <std::convertible_to<std::string_view> Text>
    Json(const Text& value) : Json(FromText(), value)
    {}
    /// An object that keeps the order of its members.
    Json(std::initializer_list<std::pair<std::string_view, Json>> members);

    static Json array();
    void push_back(const Json& item);
    bool empty() const;

    /// Prints \p data, indented by two; invalid UTF-8 becomes U+FFFD.
    friend void printJson(const Json& data);

private:
    struct FromText {};
    Json(FromText, std::string_view value);

    std::shared_ptr<nlohmann::ordered_json> value_;
};

} // namespace tool
