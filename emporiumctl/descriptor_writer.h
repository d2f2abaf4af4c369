// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <string_view>

namespace EmporiumCtl {

/// Keeps descriptors 0 to 2 in use: what is opened later must not get their numbers. A closed standard
/// output becomes one that cannot be written, so that writing is reported as an error.
void OccupyStandardDescriptors();

/// Writes to a descriptor that it does not own. After the first failure it writes nothing more.
class DescriptorWriter
{
public:
    explicit DescriptorWriter(int descriptor) : m_descriptor(descriptor) {}

    void Append(std::string_view text) { m_pending += text; }

    /// Writes what was appended. False if that failed, now or before.
    bool Flush();

    /// Reports what the system detects late, such as a full disk behind a network.
    bool Finish();

    bool Good() const { return m_error == 0; }
    std::string Error() const;

private:
    int m_descriptor;
    std::string m_pending;
    int m_error = 0;
};

} // namespace EmporiumCtl
