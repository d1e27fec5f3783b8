// The host's products and components, and its definitions of
// TSD::products() and Component::type().
#include "HostInstallation.h"

#include "Locked.h"

#include <map>
#include <mutex>
#include <stdexcept>

namespace host {
namespace {

// Live installations and the package types of their components.
struct Registry {
    std::mutex lock;
    std::map<const TSD*, HostInstallation*> installations;
    std::map<const Component*, std::string> types;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

} // namespace

HostInstallation::HostInstallation() {
    Locked<Registry> registry(TheRegistry());
    registry->installations[this] = this;
}

HostInstallation::~HostInstallation() {
    Locked<Registry> registry(TheRegistry());
    for (const std::unique_ptr<Component>& component : m_OwnedComponents) {
        registry->types.erase(component.get());
    }
    registry->installations.erase(this);
}

Product& HostInstallation::AddProduct(const std::string& name, const Environment& environment) {
    std::unique_ptr<Product> product(new Product());
    product->name = name;
    product->environment = environment;
    m_OwnedProducts.push_back(std::move(product));
    Product* added = m_OwnedProducts.back().get();
    m_Products.push_back(added);
    return *added;
}

Component& HostInstallation::AddComponent(Product& product, const std::string& type, const std::string& name,
                                          const std::string& packageFolder, const std::string& packageFile,
                                          const Environment& environment) {
    if (!OwnsProduct(&product)) {
        throw std::invalid_argument(
            "HostInstallation::AddComponent: the product belongs to another installation");
    }
    std::unique_ptr<Component> component(new Component());
    component->name = name;
    component->packageFolder = packageFolder;
    component->packageFile = packageFile;
    component->environment = environment;
    // Owned first, then typed, then listed: whichever step throws, every
    // component the installation owns is released and unregistered by its
    // destructor.
    m_OwnedComponents.push_back(std::move(component));
    Component* added = m_OwnedComponents.back().get();
    {
        Locked<Registry> registry(TheRegistry());
        registry->types[added] = type;
    }
    product.components.push_back(added);
    return *added;
}

void HostInstallation::SetComponentType(const Component& component, const std::string& type) {
    if (!OwnsComponent(&component)) {
        throw std::invalid_argument(
            "HostInstallation::SetComponentType: the component belongs to another installation");
    }
    Locked<Registry> registry(TheRegistry());
    registry->types[&component] = type;
}

HostInstallation* HostInstallation::Find(const TSD* tsd) {
    Locked<Registry> registry(TheRegistry());
    auto found = registry->installations.find(tsd);
    return found == registry->installations.end() ? nullptr : found->second;
}

std::string HostInstallation::TypeOf(const Component* component) {
    Locked<Registry> registry(TheRegistry());
    auto found = registry->types.find(component);
    return found == registry->types.end() ? std::string() : found->second;
}

bool HostInstallation::OwnsProduct(const Product* product) const {
    for (const std::unique_ptr<Product>& owned : m_OwnedProducts) {
        if (owned.get() == product) {
            return true;
        }
    }
    return false;
}

bool HostInstallation::OwnsComponent(const Component* component) const {
    for (const std::unique_ptr<Component>& owned : m_OwnedComponents) {
        if (owned.get() == component) {
            return true;
        }
    }
    return false;
}

} // namespace host

std::list<Product*>& TSD::products() {
    host::HostInstallation* installation = host::HostInstallation::Find(this);
    if (installation == nullptr) {
        throw std::logic_error("TSD::products: the installation data was not created by the host");
    }
    return installation->Products();
}

std::string Component::type() const {
    return host::HostInstallation::TypeOf(this);
}
