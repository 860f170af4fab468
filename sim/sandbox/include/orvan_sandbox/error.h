#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ERROR_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ERROR_H

#include <string>
#include <utility>
#include <variant>

namespace orvan_sandbox {

/** Why an operation of the sandbox failed. */
struct Error {
    std::string step;     /**< what was being done, e.g. "creating the user namespace" */
    int code = 0;         /**< errno, 0 when no system call failed */
    std::string detail;   /**< output of a helper program, may be empty */
    std::string hint;     /**< what the user can do about it, may be empty */
    bool refused = false; /**< the kernel or its configuration refuses namespaces: tests may be skipped */

    /** One line: "STEP: ERRNO TEXT: DETAIL (HINT)". */
    std::string text() const;
};

/** A value or an error. value() may be called only when ok(), error() only when not. */
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : m_content(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_content.index() == 0; }
    explicit operator bool() const { return ok(); }
    T& value() { return *std::get_if<0>(&m_content); }
    const T& value() const { return *std::get_if<0>(&m_content); }
    const Error& error() const { return *std::get_if<1>(&m_content); }
    T* operator->() { return &value(); }
    T& operator*() { return value(); }

private:
    std::variant<T, Error> m_content;
};

} // namespace orvan_sandbox

#endif
