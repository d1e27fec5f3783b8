// The reference host's installation data: the products and components that
// TSD::products() answers, owned here, and the package type of each
// component that Component::type() answers.
#ifndef HOST_SESSION_HOSTINSTALLATION_H
#define HOST_SESSION_HOSTINSTALLATION_H

#include "session.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace host {

// TSD and Component carry no data for products() and type(): the host keeps
// them in process-wide registries keyed by the object's address. An
// installation registers itself and its components for its lifetime, so
// products() and type() only ever see live objects.
class HostInstallation : public TSD {
public:
    HostInstallation();
    ~HostInstallation();
    HostInstallation(const HostInstallation&) = delete;
    HostInstallation& operator=(const HostInstallation&) = delete;

    // Appends a product; the installation owns it.
    Product& AddProduct(const std::string& name, const Environment& environment = Environment());

    // Appends a component of the given package type to one of this
    // installation's products (std::invalid_argument for any other product).
    Component& AddComponent(Product& product, const std::string& type, const std::string& name,
                            const std::string& packageFolder, const std::string& packageFile,
                            const Environment& environment = Environment());

    // Changes the package type of one of this installation's components.
    void SetComponentType(const Component& component, const std::string& type);

    // The list TSD::products() answers for this installation.
    std::list<Product*>& Products() { return m_Products; }

    // The installation that a TSD object is, or null for one the host did
    // not create.
    static HostInstallation* Find(const TSD* tsd);

    // The package type of a component of a live installation; empty for
    // any other component.
    static std::string TypeOf(const Component* component);

private:
    bool OwnsProduct(const Product* product) const;
    bool OwnsComponent(const Component* component) const;

    std::list<Product*> m_Products;
    std::vector<std::unique_ptr<Product>> m_OwnedProducts;
    std::vector<std::unique_ptr<Component>> m_OwnedComponents;
};

} // namespace host

#endif
