// call() and failure() for a test's class whose ask(method, params, kwargs) gives a controller's
// reply and error: the result, an error failing the test; the error's code, a result failing it.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include <gtest/gtest.h>

#include <string_view>

namespace kelvane::testing {

template <class Asker>
class CallChecks {
public:
    Value call(std::string_view method, const Value& params = Value::array(), const Value& kwargs = nullptr) {
        auto [reply, error] = static_cast<Asker&>(*this).ask(method, params, kwargs);
        EXPECT_FALSE(error) << method << ": " << error->text();
        return reply;
    }
    int failure(std::string_view method, const Value& params = Value::array(), const Value& kwargs = nullptr) {
        auto [reply, error] = static_cast<Asker&>(*this).ask(method, params, kwargs);
        EXPECT_TRUE(error) << method << " answered " << describe(reply);
        return error ? error->code : 0;
    }
};

}  // namespace kelvane::testing
