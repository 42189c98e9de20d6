#include <cstring>

#include "platform/Assert.h"
#include "sigfile/SIGFILE.h"

void CGenericException::SetErrorMessage(const char* message) {
    SF_ASSERT(m_code == -1, "GenEx", 30);
    const char* text = message ? message : "";
    size_t n = std::min<size_t>(std::strlen(text), sizeof m_message - 1);
    std::memcpy(m_message, text, n);
    m_message[n] = '\0';
}

BOOL CGenericException::GetErrorMessage(char* buffer, UINT size, UINT* helpContext) const {
    SF_ASSERT(buffer != nullptr && size != 0, "GenEx", 45);
    if (!buffer || size == 0) return FALSE;
    if (m_code != -1) return CSimpleException::GetErrorMessage(buffer, size, helpContext);
    if (helpContext) *helpContext = 0;
    size_t n = std::min<size_t>(std::strlen(m_message), size - 1);
    std::memcpy(buffer, m_message, n);
    buffer[n] = '\0';
    return TRUE;
}

std::string CGenericException::GetMessageText() const { return m_message; }

void ThrowGenericException(const char* message) { throw CGenericException(message); }
