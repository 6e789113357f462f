// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <boost/asio.hpp>

int main() {
    boost::asio::io_context lContext;
    const auto lWork = boost::asio::make_work_guard(lContext);
    lContext.run();
    return 0;
}
