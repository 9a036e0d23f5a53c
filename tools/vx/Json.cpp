#include "Json.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

template <class Value> std::shared_ptr<nlohmann::ordered_json> shared(Value value)
{
    return std::make_shared<nlohmann::ordered_json>(value);
}

} // namespace

Json::Json(std::nullptr_t) : value_(shared(nullptr)) {}
Json::Json(bool value) : value_(shared(value)) {}
Json::Json(double value) : value_(shared(value)) {}
Json::Json(std::int64_t value) : value_(shared(value)) {}
Json::Json(FromText, std::string_view value) : value_(shared(value)) {}
Json::Json(std::initializer_list<std::pair<std::string_view, Json>> members)
    : value_(shared(nlohmann::ordered_json::value_t::object))
{
    for (const auto& [name, value] : members)
        (*value_)[std::string(name)] = *value.value_;
}

Json Json::array()
{
    Json list;
    *list.value_ = nlohmann::ordered_json::array();
    return list;
}

void Json::push_back(const Json& item) { value_->push_back(*item.value_); }
bool Json::empty() const { return value_->empty(); }

void printJson(const Json& data)
{
    const std::string text =
        data.value_->dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::fputs((text + "\n").c_str(), stdout);
}

} // namespace tool
