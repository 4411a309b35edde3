#pragma once

#include "Catalogue.h"

#include <string>

namespace SorvelSandbox
{

// The HTML pages of the signed web login: the account's page, one product's page, and the page
// that says why a login link was refused. Every text from the catalogue is escaped.
std::string renderAccountPage(const AccountRecord& account);
std::string renderProductPage(const AccountRecord& account, const TitleRecord& title);
std::string renderErrorPage(int status, const std::string& message);

} // namespace SorvelSandbox
