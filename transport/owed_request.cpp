#include "transport/owed_request.h"

namespace transport {

void Owed_Request::owe(const std::weak_ptr<Answer_Debt>& debt) {
  owed_id_ = id;
  debt_ = debt;
}

Owed_Request::~Owed_Request() {
  if (const std::shared_ptr<Answer_Debt> debt = debt_.lock()) debt->request_gone(owed_id_);
}

}  // namespace transport
