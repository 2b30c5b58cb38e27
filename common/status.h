// tStatus: the result of an operation. A failure has a code, the errno of a failed system call, and a sentence for
// people.
#ifndef KESTOVA_COMMON_STATUS_H
#define KESTOVA_COMMON_STATUS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

class [[nodiscard]] tStatus
{
public:
    enum class eCode : std::uint8_t
    {
        eOk,
        eSystem,     // a system call failed: error() is its errno
        eDamaged,    // the data is invalid
        eRefused,    // the request cannot be carried out
        eCancelled,  // the caller cancelled the work
        eNoMemory
    };

    tStatus() = default;  // success
    tStatus(eCode code, std::string text) : m_code(code), m_text(std::move(text)) {}
    // A failed system call; `what`, unless empty, precedes the system's error message.
    static tStatus system(int error, const std::string& what = {})
    {
        tStatus status(eCode::eSystem, (what.empty() ? "" : what + ": ") + std::strerror(error));
        status.m_error = error;
        return status;
    }

    bool ok() const { return m_code == eCode::eOk; }
    explicit operator bool() const { return ok(); }
    eCode code() const { return m_code; }
    int error() const { return m_error; }
    const std::string& text() const { return m_text; }  // empty on success

    // Returns the same failure with a name, of a file for example, before its sentence; success stays success.
    tStatus of(const std::string& name) &&
    {
        if (!ok())
            m_text.insert(0, name + ": ");
        return std::move(*this);
    }

private:
    eCode m_code = eCode::eOk;
    int m_error = 0;
    std::string m_text;
};

#endif
